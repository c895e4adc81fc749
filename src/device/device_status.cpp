#include "device/device_status.h"

#include "device/status_texts.h"

namespace kelo {

const char* deviceStatusText(unsigned char status) {
    static const StatusTexts texts(
        "device",
        {
            {kDeviceOk, "The device accepted the command."},
            {kDeviceRefused, "The device answered with a non-zero status."},
            {kDeviceNoReply, "No reply arrived within the wait."},
            {kDeviceNotSent, "The frame could not be sent."},
            {kDeviceLinkClosed, "The link is not open or was closed while waiting."},
            {kDeviceBadArgument, "An argument is missing or out of range, or a flag is unknown."},
            {kDeviceBadIndex, "The device index does not refer to an open device."},
            {kDeviceCanModeFailed, "CAN configuration failed setting the controller mode."},
            {kDeviceCanBusFailed, "CAN configuration failed setting the bus parameters."},
            {kDeviceCanFilterFailed, "CAN configuration failed setting the acceptance filters."},
            {kDeviceCanOptionFailed, "CAN configuration failed setting the options."},
            {kDeviceBatchTooLong, "The staged frames are too long for one transmission."},
            {kDeviceBusInactive, "The bus is not active; nothing was sent."},
            {kDeviceStageEmpty, "A staged frame below the count was not filled; nothing was sent."},
            {kDeviceNoFreeEntry, "No free entry in the device table."},
        });
    return texts[status];
}

}  // namespace kelo
