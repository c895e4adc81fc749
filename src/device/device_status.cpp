#include "device/device_status.h"

#include <array>
#include <string>

namespace kelo {

namespace {

using StatusTexts = std::array<std::string, 256>;

StatusTexts buildStatusTexts() {
    StatusTexts texts;
    for (std::size_t n = 0; n < texts.size(); ++n)
        texts[n] = "unknown device status " + std::to_string(n);
    texts[kDeviceOk] = "The device accepted the command.";
    texts[kDeviceRefused] = "The device answered with a non-zero status.";
    texts[kDeviceNoReply] = "No reply arrived within the wait.";
    texts[kDeviceNotSent] = "The frame could not be sent.";
    texts[kDeviceLinkClosed] = "The link is not open or was closed while waiting.";
    texts[kDeviceBadArgument] = "An argument is missing or out of range, or a flag is unknown.";
    texts[kDeviceBadIndex] = "The device index does not refer to an open device.";
    texts[kDeviceCanModeFailed] = "CAN configuration failed setting the controller mode.";
    texts[kDeviceCanBusFailed] = "CAN configuration failed setting the bus parameters.";
    texts[kDeviceCanFilterFailed] = "CAN configuration failed setting the acceptance filters.";
    texts[kDeviceCanOptionFailed] = "CAN configuration failed setting the options.";
    texts[kDeviceBatchTooLong] = "The staged frames are too long for one transmission.";
    texts[kDeviceBusInactive] = "The bus is not active; nothing was sent.";
    texts[kDeviceStageEmpty] = "A staged frame below the count was not filled; nothing was sent.";
    texts[kDeviceNoFreeEntry] = "No free entry in the device table.";
    return texts;
}

}  // namespace

const char* deviceStatusText(unsigned char status) {
    // Built once, on first use (the initialisation of a local static is thread-safe), and never
    // changed afterwards: the pointers stay valid for the life of the process.
    static const StatusTexts texts = buildStatusTexts();
    return texts[status].c_str();
}

}  // namespace kelo
