#include "dbapi/database_handles.h"

#include <QFileInfo>
#include <QString>
#include <QTextCodec>
#include <cstring>

namespace kelo {
namespace dbapi {

std::shared_mutex DatabaseLock;
fibex::BusDatabase* FibexDb = nullptr;
autosar::tAutoSarDatabase* AutosarDb = nullptr;

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

}  // namespace dbapi
}  // namespace kelo
