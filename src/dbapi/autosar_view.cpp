#include "dbapi/autosar_view.h"

#include <cmath>
#include <set>

#include "dbapi/export_steps.h"

namespace kelo {
namespace dbapi {

namespace {

std::uint32_t microseconds(double seconds) {
    return seconds > 0.0 ? static_cast<std::uint32_t>(std::lround(seconds * 1e6)) : 0u;
}

// The cluster a controller's connectors attach it to ("CLUSTER/CHANNEL" keys); null when none.
const autosar::tAutoSarClusterConfig* clusterOf(const autosar::tAutoSarDatabase& db,
                                                const autosar::tAutoSarController& controller) {
    for (const auto& entry : db.connectors) {
        const autosar::tAutoSarConnector& connector = entry.second;
        if (connector.controller != &controller) continue;
        for (const std::string& channelKey : connector.channelKeys) {
            const auto cluster = db.clusters.find(channelKey.substr(0, channelKey.find('/')));
            if (cluster != db.clusters.end()) return &cluster->second;
        }
    }
    return nullptr;
}

template <typename Map>
AutosarView::Names keysOf(const Map& map) {
    AutosarView::Names names;
    names.reserve(map.size());
    for (const auto& entry : map)
        names.push_back(&entry.first);
    return names;
}

}  // namespace

std::unique_ptr<AutosarView::Handle> AutosarView::read(const char* path, bool readAll,
                                                       bool& loaded) {
    auto reader = std::make_unique<autosar::AutoSarReader>(std::string(path), readAll);
    loaded = reader->IsLoaded();
    return reader;
}

unsigned int AutosarView::nameBufferSize(const Database& db) {
    return longestKeyPlusOne(db.frames, db.signals);
}

const AutosarView::Cluster* AutosarView::findCluster(const Database& db, const char* name) {
    const auto cluster = db.clusters.find(name);
    return cluster == db.clusters.end() ? nullptr : &cluster->second;
}

ClusterParameters AutosarView::clusterParameters(const Cluster& c) {
    ClusterParameters p = commonClusterFields(c);
    p.speed = c.baudrate;
    p.staticSlot = c.staticSlotDuration;
    p.nit = c.networkIdleTime;
    p.wakeUpSymbolRxWindow = c.wakeupRxWindow;
    p.wakeUpSymbolTxIdle = c.wakeupTxIdle;
    p.minislot = c.minislotDuration;
    p.syncNodeMax = c.syncFrameIdCountMax;
    p.tssTransmitter = c.transmissionStartSequenceDuration;
    p.wakeUpSymbolRxIdle = c.wakeupRxIdle;
    p.wakeUpSymbolRxLow = c.wakeupRxLow;
    p.wakeUpSymbolTxLow = c.wakeupTxActive;
    p.macrotick = microseconds(c.macrotickDuration);
    p.cycleCountMax = c.cycleCountMax;
    return p;
}

const AutosarView::Ecu* AutosarView::findEcu(const Database& db, const char* name) {
    const auto ecu = db.ecus.find(name);
    return ecu == db.ecus.end() ? nullptr : &ecu->second;
}

ControllerParameters AutosarView::controllerParameters(const Database& db, const Ecu&,
                                                       const Controller& c) {
    ControllerParameters p = commonControllerFields(c);
    // The key slot counts when the controller sends its startup or sync frame in it.
    p.keySlotId = (c.keySlotUsedForStartup || c.keySlotUsedForSync) ? c.keySlotId : 0;
    // AUTOSAR gives no pMicroPerMacroNom: it is the cluster's macrotick over the microtick.
    if (const autosar::tAutoSarClusterConfig* cluster = clusterOf(db, c);
        cluster != nullptr && c.microtickDuration > 0.0)
        p.microPerMacroNom = static_cast<std::uint32_t>(
            std::lround(cluster->macrotickDuration / c.microtickDuration));
    p.singleSlotEnabled = c.keySlotOnlyEnabled ? 1 : 0;
    p.channelMask = c.channelMask;
    return p;
}

AutosarView::Names AutosarView::clusterNames(const Database& db) {
    return keysOf(db.clusters);
}

AutosarView::Names AutosarView::ecuNames(const Database& db) {
    return keysOf(db.ecus);
}

AutosarView::Names AutosarView::framesOfCluster(const Cluster& cluster) {
    Names names;
    for (const std::string& name : cluster.frameNames)
        names.push_back(&name);
    return names;
}

AutosarView::Names AutosarView::framesOfEcu(const Ecu& ecu) {
    std::set<const std::string*, bool (*)(const std::string*, const std::string*)> names(
        [](const std::string* a, const std::string* b) { return *a < *b; });
    for (const std::string& name : ecu.sentFrames)
        names.insert(&name);
    for (const std::string& name : ecu.receivedFrames)
        names.insert(&name);
    return {names.begin(), names.end()};
}

AutosarView::Names AutosarView::signalsOfFrame(const Frame& frame) {
    Names names;
    for (const autosar::tAutoSarPDUInfo* pdu : frame.pdus) {
        if (pdu == nullptr) continue;
        for (const Signal* signal : pdu->signals)
            if (signal != nullptr) names.push_back(&signal->name);
    }
    return names;
}

}  // namespace dbapi
}  // namespace kelo
