// SPDX-License-Identifier: MIT
#include "usb_descriptors.h"

#include <linux/usb/ch9.h>
#include <linux/usb/video.h>

#include <cstring>
#include <string_view>

#include "simulator/frame_source.h"

namespace hx::sim::usb {

namespace {

DECLARE_UVC_HEADER_DESCRIPTOR(1);
DECLARE_UVC_EXTENSION_UNIT_DESCRIPTOR(1, 4);
DECLARE_UVC_INPUT_HEADER_DESCRIPTOR(1, 1);
DECLARE_UVC_FRAME_UNCOMPRESSED(1);
using ControlHeader = UVC_HEADER_DESCRIPTOR(1);
using ExtensionUnit = UVC_EXTENSION_UNIT_DESCRIPTOR(1, 4);
using StreamHeader = UVC_INPUT_HEADER_DESCRIPTOR(1, 1);
using FrameDescriptor = UVC_FRAME_UNCOMPRESSED(1);

constexpr std::uint16_t kUsb2 = 0x0200;
constexpr std::uint16_t kUvc11 = 0x0110;
constexpr std::uint16_t kEnglish = 0x0409;
constexpr std::uint16_t kLargestBulkPacket = 512;  // the only one at high speed

enum StringIndex : std::uint8_t { none = 0, maker = 1, product = 2, serial = 3, function = 4 };

// A header has three parts that every one of its kind shares.
template <typename Part>
Part begun(std::uint8_t type, std::uint8_t subtype) {
    Part part = {};
    part.bLength = sizeof part;
    part.bDescriptorType = type;
    part.bDescriptorSubType = subtype;
    return part;
}

template <typename Part>
Part ofControl(std::uint8_t subtype) {
    return begun<Part>(USB_DT_CS_INTERFACE, subtype);
}

template <typename Part>
void append(Bytes& to, const Part& part, std::size_t size = sizeof(Part)) {
    // Not insert(): at -O3 GCC 12 warns of an overflow in it that cannot be.
    const std::size_t end = to.size();
    to.resize(end + size);
    std::memcpy(to.data() + end, &part, size);
}

void append(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Bytes stringDescriptor(std::string_view text) {
    Bytes result;
    if (text.empty()) return result;
    result.push_back(static_cast<std::byte>(2 + 2 * text.size()));
    result.push_back(std::byte{USB_DT_STRING});
    for (const char letter : text) {
        result.push_back(static_cast<std::byte>(letter));
        result.push_back(std::byte{0});
    }
    return result;
}

Bytes languages() {
    Bytes result = {std::byte{4}, std::byte{USB_DT_STRING}};
    append(result, kEnglish);
    return result;
}

// The driver joins product and function with a colon and a blank into the card name.
std::pair<std::string_view, std::string_view> cardParts(const CameraConfig& config) {
    const std::string_view card = config.card.data();
    const auto colon = card.find(": ");
    if (colon == card.npos || colon == 0) return {card, {}};
    return {card.substr(0, colon), card.substr(colon + 2)};
}

Bytes deviceDescriptor(const CameraConfig& config) {
    usb_device_descriptor device = {};
    device.bLength = USB_DT_DEVICE_SIZE;
    device.bDescriptorType = USB_DT_DEVICE;
    device.bcdUSB = kUsb2;
    // Class, subclass and protocol that announce an interface association.
    device.bDeviceClass = USB_CLASS_MISC;
    device.bDeviceSubClass = 2;
    device.bDeviceProtocol = 1;
    device.bMaxPacketSize0 = 64;
    device.idVendor = 0x1d6b;
    device.idProduct = 0x0102;
    device.bcdDevice = 0x0100;
    device.iManufacturer = StringIndex::maker;
    device.iProduct = StringIndex::product;
    device.iSerialNumber = config.serial[0] ? StringIndex::serial : StringIndex::none;
    device.bNumConfigurations = 1;
    Bytes result;
    append(result, device);
    return result;
}

usb_interface_assoc_descriptor association(const CameraConfig& config) {
    usb_interface_assoc_descriptor part = {};
    part.bLength = sizeof part;
    part.bDescriptorType = USB_DT_INTERFACE_ASSOCIATION;
    part.bFirstInterface = kControlInterface;
    part.bInterfaceCount = 2;
    part.bFunctionClass = USB_CLASS_VIDEO;
    part.bFunctionSubClass = UVC_SC_VIDEO_INTERFACE_COLLECTION;
    part.iFunction = cardParts(config).second.empty() ? StringIndex::none : StringIndex::function;
    return part;
}

usb_interface_descriptor interfaceOf(std::uint8_t number, std::uint8_t subclass,
                                     std::uint8_t endpoints) {
    usb_interface_descriptor part = {};
    part.bLength = sizeof part;
    part.bDescriptorType = USB_DT_INTERFACE;
    part.bInterfaceNumber = number;
    part.bNumEndpoints = endpoints;
    part.bInterfaceClass = USB_CLASS_VIDEO;
    part.bInterfaceSubClass = subclass;
    return part;
}

uvc_camera_terminal_descriptor cameraTerminal(const CameraConfig& config) {
    auto part = ofControl<uvc_camera_terminal_descriptor>(UVC_VC_INPUT_TERMINAL);
    part.bTerminalID = kCameraTerminal;
    part.wTerminalType = UVC_ITT_CAMERA;
    part.bControlSize = sizeof part.bmControls;
    // Bit 1: mode of the auto-exposure; bit 3: absolute exposure time.
    if (config.exposurePresent) part.bmControls[0] = config.autoExposureHeld ? 0x0a : 0x08;
    return part;
}

// The unit stands in the chain from the camera to USB; the driver looks nowhere else.
ExtensionUnit extensionUnit() {
    constexpr std::array<std::uint8_t, 16> kCode = {0x5f, 0x0c, 0x93, 0xd2, 0x61, 0x1b, 0x4e, 0x8a,
                                                    0x9d, 0x44, 0x37, 0xf0, 0x2b, 0xe5, 0x16, 0xc8};
    auto part = ofControl<ExtensionUnit>(UVC_VC_EXTENSION_UNIT);
    part.bUnitID = kExtensionUnit;
    std::copy(kCode.begin(), kCode.end(), part.guidExtensionCode);
    part.bNumControls = 1;
    part.bNrInPins = 1;
    part.baSourceID[0] = kProcessingUnit;
    part.bControlSize = sizeof part.bmControls;
    constexpr unsigned kBit = kIdentificationSelector - 1;
    part.bmControls[kBit / 8] = 1U << kBit % 8;
    return part;
}

Bytes controlParts(const CameraConfig& config) {
    const bool unitPresent = config.unitAnswer != UnitAnswer::absent;
    auto processing = ofControl<uvc_processing_unit_descriptor>(UVC_VC_PROCESSING_UNIT);
    processing.bUnitID = kProcessingUnit;
    processing.bSourceID = kCameraTerminal;
    processing.bControlSize = sizeof processing.bmControls;
    auto output = ofControl<uvc_output_terminal_descriptor>(UVC_VC_OUTPUT_TERMINAL);
    output.bTerminalID = kOutputTerminal;
    output.wTerminalType = UVC_TT_STREAMING;
    output.bSourceID = unitPresent ? kExtensionUnit : kProcessingUnit;

    Bytes units;
    append(units, cameraTerminal(config));
    append(units, processing);
    if (unitPresent) append(units, extensionUnit());
    append(units, output);

    auto header = ofControl<ControlHeader>(UVC_VC_HEADER);
    header.bcdUVC = kUvc11;
    header.wTotalLength = static_cast<std::uint16_t>(sizeof header + units.size());
    header.dwClockFrequency = 1'000'000;
    header.bInCollection = 1;
    header.baInterfaceNr[0] = kStreamInterface;
    Bytes result;
    append(result, header);
    append(result, units);
    return result;
}

uvc_format_uncompressed format() {
    // Frames are told as YUY2, two bytes for a pixel; what they really hold is the camera's own.
    constexpr std::array<std::uint8_t, 16> kYuy2 = {'Y',  'U',  'Y',  '2',  0x00, 0x00, 0x10, 0x00,
                                                    0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71};
    auto part = ofControl<uvc_format_uncompressed>(UVC_VS_FORMAT_UNCOMPRESSED);
    part.bFormatIndex = kFormatIndex;
    part.bNumFrameDescriptors = 1;
    std::copy(kYuy2.begin(), kYuy2.end(), part.guidFormat);
    part.bBitsPerPixel = 16;
    part.bDefaultFrameIndex = kFrameIndex;
    return part;
}

FrameDescriptor frame(const CameraConfig& config) {
    const auto interval = frameInterval(config);
    const auto bits = 8.0 * static_cast<double>(frameBytes(config)) * 1e7 / interval;
    auto part = ofControl<FrameDescriptor>(UVC_VS_FRAME_UNCOMPRESSED);
    part.bFrameIndex = kFrameIndex;
    part.wWidth = static_cast<std::uint16_t>(config.width);
    part.wHeight = static_cast<std::uint16_t>(config.height);
    part.dwMinBitRate = static_cast<std::uint32_t>(std::min(bits, 4294967295.0));
    part.dwMaxBitRate = part.dwMinBitRate;
    part.dwMaxVideoFrameBufferSize = static_cast<std::uint32_t>(frameBytes(config));
    part.dwDefaultFrameInterval = interval;
    part.bFrameIntervalType = 1;
    part.dwFrameInterval[0] = interval;
    return part;
}

Bytes streamParts(const CameraConfig& config) {
    auto color = ofControl<uvc_color_matching_descriptor>(UVC_VS_COLORFORMAT);
    // What the kernel's own camera gadget tells; older kernel headers have no names for it.
    color.bColorPrimaries = 1;           // BT.709, sRGB
    color.bTransferCharacteristics = 1;  // BT.709
    color.bMatrixCoefficients = 4;       // SMPTE 170M

    Bytes formats;
    append(formats, format());
    append(formats, frame(config));
    append(formats, color);

    auto header = ofControl<StreamHeader>(UVC_VS_INPUT_HEADER);
    header.bNumFormats = 1;
    header.wTotalLength = static_cast<std::uint16_t>(sizeof header + formats.size());
    header.bEndpointAddress = USB_DIR_IN | kStreamEndpoint;
    header.bTerminalLink = kOutputTerminal;
    header.bControlSize = 1;
    Bytes result;
    append(result, header);
    append(result, formats);
    return result;
}

usb_endpoint_descriptor streamEndpoint() {
    usb_endpoint_descriptor part = {};
    part.bLength = USB_DT_ENDPOINT_SIZE;
    part.bDescriptorType = USB_DT_ENDPOINT;
    part.bEndpointAddress = USB_DIR_IN | kStreamEndpoint;
    part.bmAttributes = USB_ENDPOINT_XFER_BULK;
    part.wMaxPacketSize = kLargestBulkPacket;
    return part;
}

Bytes configurationDescriptor(const CameraConfig& config) {
    Bytes parts;
    append(parts, association(config));
    append(parts, interfaceOf(kControlInterface, UVC_SC_VIDEOCONTROL, 0));
    append(parts, controlParts(config));
    append(parts, interfaceOf(kStreamInterface, UVC_SC_VIDEOSTREAMING, 1));
    append(parts, streamParts(config));
    append(parts, streamEndpoint(), USB_DT_ENDPOINT_SIZE);

    usb_config_descriptor head = {};
    head.bLength = USB_DT_CONFIG_SIZE;
    head.bDescriptorType = USB_DT_CONFIG;
    head.wTotalLength = static_cast<std::uint16_t>(USB_DT_CONFIG_SIZE + parts.size());
    head.bNumInterfaces = 2;
    head.bConfigurationValue = kConfiguration;
    head.bmAttributes = USB_CONFIG_ATT_ONE;
    head.bMaxPower = 250;  // units of 2 mA
    Bytes result;
    append(result, head, USB_DT_CONFIG_SIZE);
    append(result, parts);
    return result;
}

}  // namespace

UsbDescriptors::UsbDescriptors(const CameraConfig& config)
    : device_(deviceDescriptor(config)),
      configuration_(configurationDescriptor(config)),
      strings_{languages(), stringDescriptor("HX"), stringDescriptor(cardParts(config).first),
               stringDescriptor(config.serial.data()), stringDescriptor(cardParts(config).second)} {
}

const Bytes* UsbDescriptors::find(std::uint8_t type, std::uint8_t index) const {
    if (type == USB_DT_DEVICE) return &device_;
    if (type == USB_DT_CONFIG && index == 0) return &configuration_;
    if (type != USB_DT_STRING || index >= strings_.size()) return nullptr;
    return strings_[index].empty() ? nullptr : &strings_[index];
}

}  // namespace hx::sim::usb
