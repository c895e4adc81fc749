#include "dbapi/fibex_view.h"

#include <cstring>
#include <mutex>
#include <shared_mutex>

#include "dbapi/database_status.h"
#include "dbapi/export_steps.h"
#include "fibex/fibex_reader.h"

namespace kelo {
namespace dbapi {

std::unique_ptr<FibexView::Handle> FibexView::read(const char* path, bool readAll, bool& loaded) {
    auto db = std::make_unique<fibex::BusDatabase>();
    fibex::FibexReader reader(*db);
    reader.readAll = readAll;
    reader.ReadFIBEXData(path);
    loaded = db->loaded;
    return db;
}

unsigned int FibexView::nameBufferSize(const Database& db) {
    return longestKeyPlusOne(db.framesByName, db.signalsByName);
}

const FibexView::Cluster* FibexView::findCluster(const Database& db, const char* name) {
    const auto byId = db.clusters.find(name);
    if (byId != db.clusters.end()) return &byId->second;
    for (const auto& entry : db.clusters)
        if (entry.second.shortName == name) return &entry.second;
    return nullptr;
}

ClusterParameters FibexView::clusterParameters(const Cluster& c) {
    ClusterParameters p = commonClusterFields(c);
    p.speed = c.speed;
    p.staticSlot = c.staticSlot;
    p.nit = c.nit;
    p.wakeUpSymbolRxWindow = c.wakeUpSymbolRxWindow;
    p.wakeUpSymbolTxIdle = c.wakeUpSymbolTxIdle;
    p.minislot = c.minislot;
    p.syncNodeMax = c.syncNodeMax;
    p.tssTransmitter = c.tssTransmitter;
    p.wakeUpSymbolRxIdle = c.wakeUpSymbolRxIdle;
    p.wakeUpSymbolRxLow = c.wakeUpSymbolRxLow;
    p.wakeUpSymbolTxLow = c.wakeUpSymbolTxLow;
    p.macrotick = c.macrotick;
    p.cycleCountMax = c.cycle;
    return p;
}

const FibexView::Ecu* FibexView::findEcu(const Database& db, const char* name) {
    const auto ecu = db.ecusByName.find(name);
    return ecu == db.ecusByName.end() ? nullptr : &ecu->second;
}

ControllerParameters FibexView::controllerParameters(const Database&, const Ecu& ecu,
                                                     const Controller& c) {
    ControllerParameters p = commonControllerFields(c);
    p.keySlotId = c.keySlotUsageStartupSync;
    p.microPerMacroNom = c.microPerMacroNom;
    p.singleSlotEnabled = c.singleSlotEnabled;
    // The controller's channels: those its connectors in this ECU attach it to.
    for (const fibex::Connector& connector : ecu.connectors) {
        if (connector.channel == nullptr) continue;
        if (connector.controller != nullptr && connector.controller->shortName != c.shortName)
            continue;
        p.channelMask = static_cast<std::uint16_t>(p.channelMask | connector.channel->channelMask);
    }
    return p;
}

unsigned char FibexView::pduInfo(const char* frameKey, int index, unsigned char* info) {
    if (frameKey == nullptr || info == nullptr) return kBadArgument;
    // An unknown key is entered into the frame map, so this query writes.
    std::unique_lock<std::shared_mutex> lock(DatabaseLock);
    fibex::BusDatabase* db = usableFibex();
    if (db == nullptr) return kNoDatabase;
    const fibex::Frame frame = db->frames[frameKey];
    if (static_cast<long long>(index) >= static_cast<long long>(frame.pduInstanceCount))
        return kPduIndexOutOfRange;
    // The layout of the frame's first PDU, whatever the index.
    std::memset(info, 0, 4);
    if (!frame.pduInstances.empty()) {
        const fibex::PduInstance& first = frame.pduInstances.front();
        info[0] = static_cast<unsigned char>(first.bitPosition / 8);
        info[1] = first.isHighLowByteOrder ? 1 : 0;
        const std::uint16_t length = first.pdu ? first.pdu->byteLength : 0;
        info[2] = static_cast<unsigned char>(length);
        info[3] = static_cast<unsigned char>(length >> 8);
    }
    return kOk;
}

}  // namespace dbapi
}  // namespace kelo
