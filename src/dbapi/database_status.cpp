#include "dbapi/database_status.h"

#include <array>
#include <string>

#include "KeLoComm.h"

namespace kelo {
namespace dbapi {

namespace {

using StatusTexts = std::array<std::string, 256>;

StatusTexts buildStatusTexts() {
    StatusTexts texts;
    for (std::size_t n = 0; n < texts.size(); ++n)
        texts[n] = "unknown database status " + std::to_string(n);
    texts[kOk] = "Success.";
    texts[kDeviceRefused] = "The device refused the command a by-name export sent.";
    texts[kDeviceNoReply] = "No reply or no frame arrived within the wait.";
    texts[kInternalFailure] =
        "The export failed inside the library, or the device command could not be sent.";
    texts[kLinkNotOpen] = "The device link is not open or was closed while waiting.";
    texts[kBadArgument] =
        "A required argument is null, or the cluster, ECU or PDU index is unknown.";
    texts[kBadDeviceIndex] = "The device index does not refer to a device this export accepts.";
    texts[kNotLoaded] = "The file could not be loaded as a database; none is loaded now.";
    texts[kNoDatabase] =
        "No database is loaded, the path is not a file, or the ECU has no controller.";
    texts[kSignalUnknown] = "The signal name is not in the database.";
    texts[kDoesNotFit] = "The signal does not fit the payload length given.";
    texts[kNotInFrame] =
        "The signal is not in that frame or in any frame, or its scaling has no factor.";
    texts[kFrameUnknown] = "No frame at that slot and cycle, or the frame name is unknown.";
    texts[kBusInactive] = "The bus is not active; nothing was sent.";
    texts[kListTooSmall] = "The list buffer is too small; the names that fitted are in it.";
    texts[kKeyUnknown] = "The cluster, ECU or frame name of the list query is unknown.";
    return texts;
}

}  // namespace

const char* databaseStatusText(unsigned char status) {
    // Built once, on first use (the initialisation of a local static is thread-safe), and never
    // changed afterwards: the pointers stay valid for the life of the process.
    static const StatusTexts texts = buildStatusTexts();
    return texts[status].c_str();
}

}  // namespace dbapi
}  // namespace kelo

extern "C" KELOCOMM_API const char* KeLo_DatabaseStatusText(unsigned char status) {
    return kelo::dbapi::databaseStatusText(status);
}
