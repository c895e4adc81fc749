#include "fibex/bus_database.h"

#include <utility>

namespace kelo {
namespace fibex {

std::uint16_t typeCode(const std::string& text) {
    // Exact, case-sensitive names; anything else (also the empty text of an absent type) is 0.
    static const char* const kNames[] = {
        "APPLICATION", "BAP",     "DIAG-REQUEST", "DIAG-RESPONSE",      "DIAG-STATE",
        "NM",          "SERVICE", "TPL",          "XCP_PRE_CONFIGURED", "XCP_RUNTIME_CONFIGURED",
    };
    for (std::uint16_t i = 0; i < sizeof kNames / sizeof kNames[0]; ++i)
        if (text == kNames[i]) return static_cast<std::uint16_t>(i + 1);
    return 0;
}

namespace {

// The first block of a pool: enough for a small file; each further block is larger.
constexpr std::size_t kFirstPoolBlock = 16 * 1024;

std::unique_ptr<std::pmr::monotonic_buffer_resource> newPool() {
    return std::make_unique<std::pmr::monotonic_buffer_resource>(kFirstPoolBlock);
}

}  // namespace

BusDatabase::BusDatabase()
    : pool_(newPool()),
      ecusByName(pool_.get()),
      units(pool_.get()),
      codings(pool_.get()),
      signals(pool_.get()),
      signalsByName(pool_.get()),
      signalInstances(pool_.get()),
      pdus(pool_.get()),
      pduInstances(pool_.get()),
      frames(pool_.get()),
      framesByName(pool_.get()),
      pduTriggerings(pool_.get()),
      frameTriggerings(pool_.get()),
      channels(pool_.get()),
      controllers(pool_.get()),
      inputPorts(pool_.get()),
      outputPorts(pool_.get()),
      connectors(pool_.get()),
      ecus(pool_.get()),
      clusters(pool_.get()) {}

BusDatabase::BusDatabase(const BusDatabase& other) : BusDatabase() {
    *this = other;
}

BusDatabase::BusDatabase(BusDatabase&& other) : BusDatabase() {
    *this = std::move(other);
}

BusDatabase::~BusDatabase() = default;

// Map assignment keeps each map's own pool: the records are copied (or moved one by one) into
// it, so no map ever holds an entry of another database's pool.
BusDatabase& BusDatabase::operator=(const BusDatabase& other) {
    if (this == &other) return *this;
    ecusByName = other.ecusByName;
    units = other.units;
    codings = other.codings;
    signals = other.signals;
    signalsByName = other.signalsByName;
    signalInstances = other.signalInstances;
    pdus = other.pdus;
    pduInstances = other.pduInstances;
    frames = other.frames;
    framesByName = other.framesByName;
    pduTriggerings = other.pduTriggerings;
    frameTriggerings = other.frameTriggerings;
    channels = other.channels;
    controllers = other.controllers;
    inputPorts = other.inputPorts;
    outputPorts = other.outputPorts;
    connectors = other.connectors;
    ecus = other.ecus;
    ecuList = other.ecuList;
    clusters = other.clusters;
    frameNamesBySlot = other.frameNamesBySlot;
    loaded = other.loaded;
    versionCode = other.versionCode;
    notes = other.notes;
    return *this;
}

BusDatabase& BusDatabase::operator=(BusDatabase&& other) {
    if (this == &other) return *this;
    ecusByName = std::move(other.ecusByName);
    units = std::move(other.units);
    codings = std::move(other.codings);
    signals = std::move(other.signals);
    signalsByName = std::move(other.signalsByName);
    signalInstances = std::move(other.signalInstances);
    pdus = std::move(other.pdus);
    pduInstances = std::move(other.pduInstances);
    frames = std::move(other.frames);
    framesByName = std::move(other.framesByName);
    pduTriggerings = std::move(other.pduTriggerings);
    frameTriggerings = std::move(other.frameTriggerings);
    channels = std::move(other.channels);
    controllers = std::move(other.controllers);
    inputPorts = std::move(other.inputPorts);
    outputPorts = std::move(other.outputPorts);
    connectors = std::move(other.connectors);
    ecus = std::move(other.ecus);
    ecuList = std::move(other.ecuList);
    clusters = std::move(other.clusters);
    frameNamesBySlot = std::move(other.frameNamesBySlot);
    loaded = other.loaded;
    versionCode = other.versionCode;
    notes = std::move(other.notes);
    return *this;
}

void BusDatabase::Clear() {
    ecusByName.clear();
    units.clear();
    codings.clear();
    signals.clear();
    signalsByName.clear();
    signalInstances.clear();
    pdus.clear();
    pduInstances.clear();
    frames.clear();
    framesByName.clear();
    pduTriggerings.clear();
    frameTriggerings.clear();
    channels.clear();
    controllers.clear();
    inputPorts.clear();
    outputPorts.clear();
    connectors.clear();
    ecus.clear();
    std::vector<std::pair<std::string, Ecu>>().swap(ecuList);
    clusters.clear();
    frameNamesBySlot.clear();
    notes.clear();
    pool_->release();  // every map is empty: no entry lives in the pool any more
    // A cleared database holds no file: the reader sets both again when it reads one.
    loaded = false;
    versionCode = -1;
}

const std::string& BusDatabase::frameNameAt(std::uint16_t slot, std::uint8_t cycle) const {
    return xml::frameNameAt(frameNamesBySlot, slot, cycle);
}

}  // namespace fibex
}  // namespace kelo
