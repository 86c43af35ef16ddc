// SPDX-License-Identifier: MIT
// The UVC camera: finds its devices, identifies and brings each up, serves frames and controls.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/camera_base.h"
#include "v4l2/HXCamera_v4l2.h"

/// Reads the identification text of the device at `path` into `firmware`. False when the device
/// refuses; true with `firmware` untouched when the node cannot be opened.
bool getFirmwareName(std::string& path, std::string& firmware);

class CameraUvc : public CameraBase {
  public:
    CameraUvc();
    ~CameraUvc() override;

    /// Asks every node of /dev whose name begins with "video". False when /dev cannot be read.
    bool checkDevice(std::vector<CameraBase*>& found) override;
    /// `handle` points to a std::string, the path of the node.
    bool setHandle(const void* handle) override;
    /// Identifies the camera at the node and sets it streaming.
    /// @throws std::out_of_range for an identification text that is cut short
    bool init() override;

    unsigned short* getData() override;
    int getHeight() override;
    int getWidth() override;
    unsigned char getDepth() override;
    std::string getCameraId() override;
    int getSpecResolution() override;
    bool getExpRange(unsigned int& min, unsigned int& max) override;
    unsigned int getExp() override;
    bool setExp(unsigned int exposure) override;
    unsigned int getGain() override;
    bool setGain(unsigned int gain) override;
    bool hasLamp() override;
    bool getLamp() override;
    bool setLamp(bool on) override;
    const char* getName() override;

  private:
    bool identify();
    bool readExposureRange();
    bool bringUp();
    void takeExposureFromFrame();

    v4l2_dev dev;
    std::string cameraId;
    unsigned short* dataBuf = nullptr;  ///< width x height samples
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint8_t depth = 0;
    std::int32_t specResolution = 0;
    std::int64_t expMin = 0;
    std::int64_t expMax = 0;
    std::uint8_t model = 0;
    bool aeInFrame = true;
    bool lampPresent = false;
    bool lampOn = false;
    std::uint32_t lastExp = 0;   ///< last exposure that the device accepted
    std::uint16_t frameExp = 0;  ///< exposure found in the last frame; two threads meet here
    std::string name;
};
