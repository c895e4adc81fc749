#include "dbapi/database_handles.h"

#include <QFileInfo>
#include <QString>
#include <QTextCodec>
#include <cstring>

#include "dbapi/database_status.h"
#include "dbapi/export_steps.h"

namespace kelo {
namespace dbapi {

std::shared_mutex DatabaseLock;
fibex::BusDatabase* FibexDb = nullptr;
autosar::AutoSarReader* AutosarDb = nullptr;

std::mutex FrameMapsLock;
std::map<std::string, std::uint8_t> RegisteredFrames;
std::map<std::string, std::uint8_t> FrameBufferIndexMap;
std::map<std::string, std::uint8_t> AutosarFrameBufferIndexMap;

std::atomic<std::uint16_t> MacroPerCycleDivisor{0};

void resetFrameMaps() {
    std::lock_guard<std::mutex> lock(FrameMapsLock);
    RegisteredFrames.clear();
    FrameBufferIndexMap.clear();
}

std::uint8_t bufferIndexFor(std::map<std::string, std::uint8_t>& map, const std::string& frame) {
    std::lock_guard<std::mutex> lock(FrameMapsLock);
    return map[frame];
}

void storeBufferIndex(std::map<std::string, std::uint8_t>& map, const std::string& frame,
                      std::uint8_t index) {
    std::lock_guard<std::mutex> lock(FrameMapsLock);
    map[frame] = index;
}

bool registerFrame(const std::string& frame) {
    std::lock_guard<std::mutex> lock(FrameMapsLock);
    return RegisteredFrames.emplace(frame, 1).second;
}

void copyName(const std::string& name, char* out) {
    std::memcpy(out, name.c_str(), name.size() + 1);
}

bool isExistingFile(const char* path) {
    if (QTextCodec* utf8 = QTextCodec::codecForName("UTF-8")) QTextCodec::setCodecForLocale(utf8);
    if (path == nullptr) return false;
    return QFileInfo(QString::fromLocal8Bit(path)).isFile();
}

unsigned char appendNames(const std::vector<const std::string*>& names, char* buf,
                          unsigned int bufSize, unsigned int* total, unsigned int* count) {
    *total = static_cast<unsigned int>(names.size());
    std::size_t length = 0;  // current string length of buf
    for (const std::string* name : names) {
        if (bufSize == 0 || length + name->size() > std::size_t(bufSize) - 1) return kListTooSmall;
        if (length != 0) buf[length++] = ';';
        std::memcpy(buf + length, name->data(), name->size());
        length += name->size();
        ++*count;
    }
    return kOk;
}

bool startList(char* buf, unsigned int bufSize, unsigned int* total, unsigned int* count) {
    if (buf == nullptr || total == nullptr || count == nullptr) return false;
    std::memset(buf, 0, bufSize);
    *count = 0;
    return true;
}

}  // namespace dbapi
}  // namespace kelo
