// SPDX-License-Identifier: MIT
// Camera interface, and the registry of camera classes. Used by api/ and by every camera class.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

/// A camera. The exported functions know cameras only through this interface.
class CameraBase {
  public:
    CameraBase() = default;
    CameraBase(const CameraBase&) = delete;
    CameraBase& operator=(const CameraBase&) = delete;
    /// Safe on an object that was never initialised, or whose init failed.
    virtual ~CameraBase() {}

    /// Appends one new, initialised camera to `found` for each usable device of this class; the
    /// caller owns them. The object itself is a mere probe. False when no search was possible.
    virtual bool checkDevice(std::vector<CameraBase*>& found) = 0;
    /// Names the device that init shall open, in the form that the class defines.
    virtual bool setHandle(const void* handle) = 0;
    /// Opens and prepares the device. True: ready to deliver frames.
    virtual bool init() = 0;
    /// Takes one frame; blocks until it has come. getWidth() x getHeight() samples, the camera's
    /// own, overwritten by the next call. Null when no frame came.
    virtual unsigned short* getData() = 0;
    virtual int getHeight() = 0;
    virtual int getWidth() = 0;
    /// Bits per sample.
    virtual unsigned char getDepth() = 0;
    virtual std::string getCameraId() = 0;
    virtual int getSpecResolution() = 0;
    virtual bool getExpRange(unsigned int& min, unsigned int& max) = 0;
    virtual unsigned int getExp() = 0;
    virtual bool setExp(unsigned int exposure) = 0;
    virtual unsigned int getGain() = 0;
    virtual bool setGain(unsigned int gain) = 0;
    virtual bool hasLamp() = 0;
    virtual bool getLamp() = 0;
    virtual bool setLamp(bool on) = 0;
    /// Owned by the camera, valid as long as it lives.
    virtual const char* getName() = 0;
};

/// Registry: key -> function that makes a camera object of a class. Filled while the library is
/// loaded, only read afterwards.
class CameraFactory {
  public:
    /// An object of this at namespace scope registers class T under a key; a later one with the
    /// same key takes its place. Its file must be linked after camera_base (see src/CMakeLists).
    template <class T>
    struct register_t {
        explicit register_t(const std::string& key) {
            CameraFactory::get();
            registerMap[key] = []() -> CameraBase* { return new T; };
        }
    };

    static CameraFactory& get();

    static std::map<std::string, std::function<CameraBase*()>> registerMap;

  private:
    CameraFactory() = default;
};
