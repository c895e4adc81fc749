// Helpers the fuzz targets share: a per-process scratch file for the database readers (their
// exports open files by path), the names of a loaded database, and received-frame headers that
// point at a frame's slot and cycle.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "KeLoComm.h"
#include "dbapi/database_handles.h"

namespace kelo_fuzz {

// One file per process, rewritten for every input. It lives in a directory named after the
// process id, so parallel fuzzing jobs never share it: $TMPDIR when set, otherwise /dev/shm
// (memory, no disk) when present, otherwise /tmp. The descriptor stays open and the content is
// overwritten in place, which saves an open, a close and fresh file pages per input. Removed
// when the process exits normally.
class ScratchFile {
  public:
    explicit ScratchFile(const char* fileName) {
        const char* base = std::getenv("TMPDIR");
        struct stat info;
        if (base == nullptr || *base == '\0')
            base = (::stat("/dev/shm", &info) == 0 && S_ISDIR(info.st_mode)) ? "/dev/shm" : "/tmp";
        dir_ = std::string(base) + "/kelo-fuzz-" + std::to_string(::getpid());
        ::mkdir(dir_.c_str(), 0700);
        path_ = dir_ + "/" + fileName;
        fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    }
    ~ScratchFile() {
        if (fd_ >= 0) ::close(fd_);
        ::unlink(path_.c_str());
        ::rmdir(dir_.c_str());
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    // Replaces the file's content; false when it could not be written.
    bool write(const std::uint8_t* data, std::size_t size) {
        if (fd_ < 0) return false;
        std::size_t done = 0;
        while (done < size) {
            const ssize_t n = ::pwrite(fd_, data + done, size - done, static_cast<off_t>(done));
            if (n <= 0) return false;
            done += static_cast<std::size_t>(n);
        }
        return ::ftruncate(fd_, static_cast<off_t>(size)) == 0;
    }
    const char* path() const { return path_.c_str(); }

  private:
    std::string dir_;
    std::string path_;
    int fd_ = -1;
};

// The frame maps of the database interface outlive a database (a signal-to-frame query enters
// its frame, transmit by name its buffer index): the FIBEX ones until the next successful open,
// the AUTOSAR buffer indexes for good. Emptying them after every input keeps memory flat and
// each run's allocations balanced, so libFuzzer's leak check does not re-run inputs that loaded.
inline void emptyFrameMaps() {
    kelo::dbapi::resetFrameMaps();
    std::lock_guard<std::mutex> lock(kelo::dbapi::FrameMapsLock);
    kelo::dbapi::AutosarFrameBufferIndexMap.clear();
}

// At most this many names of each kind are queried per input, so one large database cannot
// make a single run slow.
inline constexpr std::size_t kNameCap = 256;

struct Names {
    std::vector<std::string> frames;
    std::vector<std::string> frameIds;  // FIBEX only: the frames' XML IDs
    std::vector<std::string> signals;
    std::vector<std::string> clusters;
    std::vector<std::string> ecus;
};

template <typename Map>
void keysOf(const Map& map, std::vector<std::string>& out) {
    for (const auto& entry : map) {
        if (out.size() >= kNameCap) return;
        out.push_back(entry.first);
    }
}

// The FIBEX exports have no list queries: the names come from the loaded database itself
// (clusters both by ID and by SHORT-NAME, the two keys the parameter query accepts).
inline Names fibexNames() {
    Names names;
    std::shared_lock<std::shared_mutex> lock(kelo::dbapi::DatabaseLock);
    const kelo::fibex::BusDatabase* db = kelo::dbapi::usableFibex();
    if (db == nullptr) return names;
    keysOf(db->framesByName, names.frames);
    keysOf(db->frames, names.frameIds);
    keysOf(db->signalsByName, names.signals);
    keysOf(db->clusters, names.clusters);
    for (const auto& entry : db->clusters) {
        if (names.clusters.size() >= 2 * kNameCap) break;
        names.clusters.push_back(entry.second.shortName);
    }
    keysOf(db->ecusByName, names.ecus);
    return names;
}

// Splits a ";"-separated list buffer of `size` bytes (not necessarily NUL-terminated).
inline void splitList(const std::vector<char>& buf, std::vector<std::string>& out) {
    const std::size_t length = ::strnlen(buf.data(), buf.size());
    std::size_t start = 0;
    while (start < length && out.size() < kNameCap) {
        std::size_t end = start;
        while (end < length && buf[end] != ';')
            ++end;
        out.emplace_back(buf.data() + start, end - start);
        start = end + 1;
    }
}

// Runs one AUTOSAR list query with a buffer that grows until the whole list fits (21 means too
// small); the buffer is exactly bufSize bytes, so a write past it is caught. Returns the status.
template <typename Query>
unsigned char readList(Query query, std::vector<std::string>& out) {
    std::vector<char> buf(256);
    unsigned int total = 0;
    unsigned int count = 0;
    unsigned char status = query(buf.data(), static_cast<unsigned int>(buf.size()), &total, &count);
    while (status == 21 && buf.size() < (std::size_t{1} << 22)) {
        buf.assign(buf.size() * 4, 0);
        status = query(buf.data(), static_cast<unsigned int>(buf.size()), &total, &count);
    }
    if (status == 0) splitList(buf, out);
    return status;
}

// The same for a list query that takes a key (a cluster, ECU or frame name) first.
using KeyedListQuery = unsigned char (*)(const char*, char*, unsigned int, unsigned int*,
                                         unsigned int*);
inline unsigned char readList(KeyedListQuery query, const std::string& key,
                              std::vector<std::string>& out) {
    return readList(
        [&](char* buf, unsigned int bufSize, unsigned int* total, unsigned int* count) {
            return query(key.c_str(), buf, bufSize, total, count);
        },
        out);
}

// Every name the list queries give, each list also read once into a 7-byte buffer.
inline Names autosarNames() {
    Names names;
    readList(KFr_AutoSar_GetAllClusterName, names.clusters);
    readList(KFr_AutoSar_GetAllECUName, names.ecus);
    char small[7];
    unsigned int total = 0;
    unsigned int count = 0;
    KFr_AutoSar_GetAllECUName(small, sizeof small, &total, &count);
    for (const std::string& cluster : names.clusters) {
        readList(KFr_AutoSar_GetAllFrameName_ByClusterName, cluster, names.frames);
        KFr_AutoSar_GetAllFrameName_ByClusterName(cluster.c_str(), small, sizeof small, &total,
                                                  &count);
    }
    std::vector<std::string> ecuFrames;
    for (const std::string& ecu : names.ecus)
        readList(KFr_AutoSar_GetAllFrameName_ByECUName, ecu, ecuFrames);
    names.frames.insert(names.frames.end(), ecuFrames.begin(), ecuFrames.end());
    std::sort(names.frames.begin(), names.frames.end());
    names.frames.erase(std::unique(names.frames.begin(), names.frames.end()), names.frames.end());
    if (names.frames.size() > kNameCap) names.frames.resize(kNameCap);
    for (const std::string& frame : names.frames) {
        readList(KFr_AutoSar_GetAllSignalName_ByFrameName, frame, names.signals);
        KFr_AutoSar_GetAllSignalName_ByFrameName(frame.c_str(), small, sizeof small, &total,
                                                 &count);
    }
    // Unknown keys (22) and a null key (5).
    KFr_AutoSar_GetAllFrameName_ByClusterName("", small, sizeof small, &total, &count);
    KFr_AutoSar_GetAllSignalName_ByFrameName(nullptr, small, sizeof small, &total, &count);
    return names;
}

using SlotQuery = unsigned char (*)(const char*, unsigned char, unsigned char, unsigned char*);

// A 28-byte received-frame header (slot identifier little-endian at 16, cycle at 19) for the
// frame's slot and base cycle as its format's slot query reports them; false for an unknown
// frame.
inline bool headerForFrame(SlotQuery query, const std::string& frame, unsigned char* header) {
    unsigned char block[12] = {};
    if (query(frame.c_str(), 0, 0, block) != 0) return false;
    header[16] = block[2];
    header[17] = block[3];
    header[19] = block[9];
    header[20] = block[5];
    return true;
}

// Physical values the codec fuzzing writes: ordinary ones and those at the edges of the
// float-to-integer conversions.
using Limits = std::numeric_limits<float>;
inline constexpr float kValues[] = {
    0.0f,   1.0f,    -1.0f,   12.5f,    -300.25f,           65535.0f,
    4.0e9f, -4.0e9f, 1.0e19f, -1.0e19f, Limits::infinity(), Limits::quiet_NaN()};
inline float valueAt(std::size_t i) {
    return kValues[i % (sizeof kValues / sizeof kValues[0])];
}

// One format's database exports, so that one exercise serves both readers' fuzz targets (and
// the codec target picks its format's codec from them).
struct DatabaseExports {
    unsigned char (*getMaxNameLength)(unsigned int*);
    SlotQuery getSlotParameter;
    unsigned char (*getFrameName)(const unsigned char*, char*);
    unsigned char (*getFrameNameBySignalName)(const char*, char*, unsigned char*);
    unsigned char (*decodeSignal)(const unsigned char*, const unsigned char*, const char*, float*);
    unsigned char (*encodeSignal)(const char*, float, unsigned char*, unsigned char);
    unsigned char (*getParameter)(const char*, const char*, unsigned char*, unsigned char*,
                                  unsigned char*);
    unsigned char (*getControllerParameter)(const char*, fnpt*);
    unsigned char (*setSlotParameter)(unsigned char, unsigned char, const char*, unsigned char,
                                      unsigned char);
    unsigned char (*transmit)(unsigned char, unsigned char, const char*, unsigned char*,
                              unsigned char);
};

inline const DatabaseExports kFibexExports{KFr_Fibex_GetMaxNameLength,
                                           KFr_Fibex_GetSlotParameter,
                                           KFr_Fibex_GetFrameName,
                                           KFr_Fibex_GetFrameName_BySignalName,
                                           KFr_Fibex_decodeSignal,
                                           KFr_Fibex_encodeSignal,
                                           KFr_Fibex_GetParameter,
                                           KFr_Fibex_GetControllerParameter,
                                           KFr_Fibex_Set_Slot_Parameter_Wrapper,
                                           KFr_Fibex_Transmit_Wrapper};
inline const DatabaseExports kAutosarExports{KFr_AutoSar_GetMaxNameLength,
                                             KFr_AutoSar_GetSlotParameter,
                                             KFr_AutoSar_GetFrameName,
                                             KFr_AutoSar_GetFrameName_BySignalName,
                                             KFr_AutoSar_decodeSignal,
                                             KFr_AutoSar_encodeSignal,
                                             KFr_AutoSar_GetParameter,
                                             KFr_AutoSar_GetControllerParameter,
                                             KFr_AutoSar_Set_Slot_Parameter_Wrapper,
                                             KFr_AutoSar_Transmit_Wrapper};

// Uses a loaded database the way an application does: name and slot queries per frame, the
// codec on every signal (decoded at its frame's slot and cycle from the input's own bytes,
// encoded into a payload of exactly its frame's length and into one byte), cluster and node
// parameters, and the by-name device exports (no device is open, so only their database half
// runs). Name buffers have exactly the size the database reports, so the address sanitizer
// sees any write past them.
inline void exerciseDatabase(const DatabaseExports& db, const Names& names,
                             const std::uint8_t* data, std::size_t size) {
    unsigned int maxName = 0;
    if (db.getMaxNameLength(&maxName) == 0 && maxName > 0) {
        std::vector<char> nameBuf(maxName);
        const std::uint8_t salt = data[size / 2];
        for (const std::string& frame : names.frames) {
            unsigned char header[28] = {};
            if (headerForFrame(db.getSlotParameter, frame, header))
                db.getFrameName(header, nameBuf.data());
            unsigned char block[12];
            db.getSlotParameter(frame.c_str(), salt, static_cast<unsigned char>(~salt), block);
        }
        std::vector<unsigned char> payload(510);
        for (std::size_t i = 0; i < payload.size(); ++i)
            payload[i] = data[i % size];
        std::size_t i = 0;
        for (const std::string& signal : names.signals) {
            unsigned char firstUse = 0;
            unsigned char header[28] = {};
            if (db.getFrameNameBySignalName(signal.c_str(), nameBuf.data(), &firstUse) == 0)
                headerForFrame(db.getSlotParameter, nameBuf.data(), header);
            float value = 0.0f;
            db.decodeSignal(header, payload.data(), signal.c_str(), &value);
            const auto length =
                static_cast<unsigned char>(std::min(std::max(2u * header[20], 1u), 255u));
            std::unique_ptr<unsigned char[]> out(new unsigned char[length]());
            db.encodeSignal(signal.c_str(), valueAt(i++), out.get(), length);
            unsigned char one = 0;
            db.encodeSignal(signal.c_str(), value, &one, 1);
        }
        // A header at slot 0xFFFF / cycle 63 names no frame.
        unsigned char header[28] = {};
        header[16] = header[17] = 0xFF;
        header[19] = 63;
        db.getFrameName(header, nameBuf.data());
    }
    std::size_t pairs = 0;
    for (const std::string& cluster : names.clusters) {
        for (const std::string& ecu : names.ecus) {
            if (++pairs > 16) break;
            unsigned char clusterBlock[36];
            unsigned char nodeBlock[48];
            unsigned char ccBlock[5];
            db.getParameter(cluster.c_str(), ecu.c_str(), clusterBlock, nodeBlock, ccBlock);
        }
    }
    for (const std::string& ecu : names.ecus) {
        fnpt node;
        db.getControllerParameter(ecu.c_str(), &node);
    }
    if (!names.frames.empty()) {
        const char* frame = names.frames.front().c_str();
        db.setSlotParameter(0, 0, frame, 0, 0);
        unsigned char bytes[8] = {};
        db.transmit(0, 0, frame, bytes, sizeof bytes);
    }
}

}  // namespace kelo_fuzz
