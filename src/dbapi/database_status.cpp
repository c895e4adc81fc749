#include "dbapi/database_status.h"

#include "KeLoComm.h"
#include "device/status_texts.h"

namespace kelo {
namespace dbapi {

const char* databaseStatusText(unsigned char status) {
    static const StatusTexts texts(
        "database",
        {
            {kOk, "Success."},
            {kDeviceRefused, "The device refused the command a by-name export sent."},
            {kDeviceNoReply, "No reply or no frame arrived within the wait."},
            {kInternalFailure,
             "The export failed inside the library, or the device command could not be sent."},
            {kLinkNotOpen, "The device link is not open or was closed while waiting."},
            {kBadArgument,
             "A required argument is null, or the cluster, ECU or PDU index is unknown."},
            {kBadDeviceIndex, "The device index does not refer to a device this export accepts."},
            {kNotLoaded, "The file could not be loaded as a database; none is loaded now."},
            {kNoDatabase,
             "No database is loaded, the path is not a file, or the ECU has no controller."},
            {kSignalUnknown, "The signal name is not in the database."},
            {kDoesNotFit, "The signal does not fit the payload length given."},
            {kNotInFrame,
             "The signal is not in that frame or in any frame, or its scaling has no factor."},
            {kFrameUnknown, "No frame at that slot and cycle, or the frame name is unknown."},
            {kBusInactive, "The bus is not active; nothing was sent."},
            {kListTooSmall, "The list buffer is too small; the names that fitted are in it."},
            {kKeyUnknown, "The cluster, ECU or frame name of the list query is unknown."},
        });
    return texts[status];
}

}  // namespace dbapi
}  // namespace kelo

extern "C" KELOCOMM_API const char* KeLo_DatabaseStatusText(unsigned char status) {
    return kelo::dbapi::databaseStatusText(status);
}
