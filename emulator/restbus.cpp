#include "restbus.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <fstream>
#include <set>

#include "autosar/autosar_reader.h"
#include "dbapi/autosar_view.h"
#include "dbapi/database_status.h"
#include "dbapi/fibex_view.h"
#include "fibex/fibex_reader.h"

namespace kelo {
namespace emu {

namespace {

// Half a triangle period takes at most this many transmissions.
constexpr std::int64_t kRampSteps = 256;

// The root element's name without its namespace prefix; "" when none is found.
std::string rootElement(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string head(64 * 1024, '\0');
    in.read(&head[0], static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    std::size_t at = 0;
    while ((at = head.find('<', at)) != std::string::npos) {
        if (head.compare(at, 4, "<!--") == 0) {
            at = head.find("-->", at);
            continue;
        }
        if (at + 1 < head.size() && (head[at + 1] == '?' || head[at + 1] == '!')) {
            ++at;
            continue;
        }
        std::size_t end = at + 1;
        while (end < head.size() && !std::isspace(static_cast<unsigned char>(head[end])) &&
               head[end] != '>' && head[end] != '/')
            ++end;
        const std::string name = head.substr(at + 1, end - at - 1);
        const std::size_t colon = name.rfind(':');
        return colon == std::string::npos ? name : name.substr(colon + 1);
    }
    return std::string();
}

bool endsWithUpdateBit(const std::string& name) {
    return name.size() >= 3 && name.compare(name.size() - 3, 3, "_UB") == 0;
}

bool looksLikeCounter(const std::string& name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower.find("counter") != std::string::npos || lower.find("cnt") != std::string::npos ||
           lower.find("alive") != std::string::npos;
}

std::uint32_t nameHash(const std::string& name) {
    std::uint32_t h = 2166136261u;  // FNV-1a
    for (unsigned char c : name)
        h = (h ^ c) * 16777619u;
    return h;
}

// Raw limits a coding gives beside its bit length; lo > hi when it gives none.
struct RawLimits {
    std::int64_t lo = 1;
    std::int64_t hi = 0;
};

// Raw limits from physical ones through the coding's scale.
RawLimits fromPhysical(const dbapi::SignalCoding& c, double lo, double hi) {
    const bool scaled = c.scaling == dbapi::Scaling::Linear && c.hasScale && c.factor != 0.0f;
    const double f = scaled ? c.factor : 1.0, o = scaled ? c.offset : 0.0;
    const double a = (lo - o) / f, b = (hi - o) / f;
    return {static_cast<std::int64_t>(std::ceil(std::min(a, b))),
            static_cast<std::int64_t>(std::floor(std::max(a, b)))};
}

bool finiteLimit(float v) {
    return std::fabs(v) < fibex::kFloatMax;
}

// FIBEX: the first compu method's internal and physical constraints (LINEAR and IDENTICAL), or
// the span of a text table's scales.
RawLimits fibexLimits(const fibex::Signal& s, const dbapi::SignalCoding& c) {
    RawLimits r;
    if (s.coding == nullptr || s.coding->compuMethods.empty()) return r;
    const fibex::CompuMethod& m = s.coding->compuMethods.front();
    if (c.scaling != dbapi::Scaling::Linear) {
        for (const fibex::CompuScale& scale : m.scales) {
            r.lo = r.lo > r.hi ? scale.lowerLimit : std::min<std::int64_t>(r.lo, scale.lowerLimit);
            r.hi = std::max<std::int64_t>(r.hi, scale.upperLimit);
        }
        return r.hi > r.lo ? r : RawLimits{};
    }
    auto narrow = [&r](RawLimits n) {
        if (n.lo > n.hi) return;
        if (r.lo > r.hi) {
            r = n;
        } else {
            r.lo = std::max(r.lo, n.lo);
            r.hi = std::min(r.hi, n.hi);
        }
    };
    if (finiteLimit(m.internalLowerLimit) && finiteLimit(m.internalUpperLimit))
        narrow({static_cast<std::int64_t>(std::ceil(m.internalLowerLimit)),
                static_cast<std::int64_t>(std::floor(m.internalUpperLimit))});
    if (finiteLimit(m.physLowerLimit) && finiteLimit(m.physUpperLimit))
        narrow(fromPhysical(c, m.physLowerLimit, m.physUpperLimit));
    return r;
}

// AUTOSAR: the limits of the scale the codec uses (linear), or the span of every scale.
RawLimits autosarLimits(const autosar::tAutoSarDatabase& db, const autosar::tAutoSarSignalInfo& s,
                        const dbapi::SignalCoding& c) {
    RawLimits r;
    if (s.compuMethod == nullptr || s.compuMethod->scales.empty()) return r;
    const std::vector<autosar::tAutoSarCompuScale>& scales = s.compuMethod->scales;
    if (c.scaling == dbapi::Scaling::Linear) {
        const autosar::tAutoSarCompuScale* used = dbapi::AutosarView::scaleOf(db, *s.compuMethod);
        if (used->upperLimit > used->lowerLimit) r = {used->lowerLimit, used->upperLimit};
        return r;
    }
    for (const autosar::tAutoSarCompuScale& scale : scales) {
        r.lo = r.lo > r.hi ? scale.lowerLimit : std::min<std::int64_t>(r.lo, scale.lowerLimit);
        r.hi = std::max<std::int64_t>(r.hi, scale.upperLimit);
    }
    if (r.hi <= r.lo) r = RawLimits{};
    return r;
}

// A value signal: its walk over the bit range, narrowed by the coding's limits.
Restbus::Signal valueSignal(const std::string& name, const dbapi::SignalCoding& c,
                            RawLimits limits) {
    Restbus::Signal s;
    s.name = name;
    s.coding = c;
    const unsigned bits = std::min<unsigned>(c.bitLength, 32);
    s.rawMin = c.isSigned ? -(std::int64_t{1} << (bits - 1)) : 0;
    s.rawMax = c.isSigned ? (std::int64_t{1} << (bits - 1)) - 1 : (std::int64_t{1} << bits) - 1;
    if (limits.lo <= limits.hi && limits.lo <= s.rawMax && limits.hi >= s.rawMin) {
        s.rawMin = std::max(s.rawMin, limits.lo);
        s.rawMax = std::min(s.rawMax, limits.hi);
    }
    const bool linear = c.scaling == dbapi::Scaling::Linear;
    s.motion = looksLikeCounter(name) || !linear ? Restbus::Motion::Counter : Restbus::Motion::Ramp;
    const double f = linear && c.hasScale ? c.factor : 1.0,
                 o = linear && c.hasScale ? c.offset : 0.0;
    const double a = static_cast<double>(s.rawMin) * f + o,
                 b = static_cast<double>(s.rawMax) * f + o;
    s.physMin = std::min(a, b);
    s.physMax = std::max(a, b);
    s.phase = nameHash(name);
    return s;
}

Restbus::Signal updateBit(const std::string& name, std::uint16_t position) {
    Restbus::Signal s;
    s.name = name;
    s.coding.bitPosition = position;
    s.coding.bitLength = 1;
    s.motion = Restbus::Motion::UpdateBit;
    s.rawMin = s.rawMax = 1;
    s.physMin = s.physMax = 1.0;
    return s;
}

// Every signal and update bit of a frame, each once, in the order the view walks them.
template <typename View, typename Limits>
std::vector<Restbus::Signal> signalsOf(const typename View::Database& db,
                                       const typename View::Frame& frame, Limits&& limits) {
    std::vector<Restbus::Signal> out;
    std::set<std::string> seen;
    using S = typename View::Signal;
    View::walkSignals(db, frame, [&](const S* s, const S* ub, bool msbFirst) {
        if (s != nullptr && seen.insert(View::nameOf(*s)).second) {
            const std::string& name = View::nameOf(*s);
            if (endsWithUpdateBit(name)) {
                out.push_back(updateBit(name, View::positionOf(db, *s)));
            } else {
                const dbapi::SignalCoding c = View::codingOf(db, *s, msbFirst);
                if (c.bitLength > 0 && c.bitLength < 64)
                    out.push_back(valueSignal(name, c, limits(*s, c)));
            }
        }
        if (ub != nullptr && seen.insert(View::nameOf(*ub)).second)
            out.push_back(updateBit(View::nameOf(*ub), View::positionOf(db, *ub)));
        return false;
    });
    return out;
}

// Which triggerings are played: those of the named ECUs; without names, those any ECU sends;
// when the cluster names no sender at all, every one.
struct SenderFilter {
    std::vector<std::string> ecus;
    bool anySender = false;
    bool operator()(const std::vector<std::string>& senders) const {
        if (!ecus.empty()) {
            for (const std::string& s : senders)
                if (std::find(ecus.begin(), ecus.end(), s) != ecus.end()) return true;
            return false;
        }
        return !anySender || !senders.empty();
    }
};

}  // namespace

bool Restbus::load(const std::string& path, const std::string& cluster,
                   const std::vector<std::string>& ecus, std::string* error) {
    std::string ignored;
    std::string& message = error != nullptr ? *error : ignored;
    cycleMicros_ = 0;
    schedule_.clear();
    frames_.clear();
    const std::string root = rootElement(path);
    bool ok = false;
    if (root == "FIBEX") {
        ok = loadFibex(path, cluster, ecus, &message);
    } else if (root == "AUTOSAR") {
        ok = loadAutosar(path, cluster, ecus, &message);
    } else {
        message = "'" + path + "' is neither a FIBEX nor an AUTOSAR file";
    }
    if (ok) finish();
    return ok;
}

bool Restbus::loadFibex(const std::string& path, const std::string& clusterName,
                        const std::vector<std::string>& ecus, std::string* error) {
    fibex::BusDatabase db;
    {
        fibex::FibexReader reader(db);
        reader.readAll = true;
        reader.ReadFIBEXData(path);
    }
    if (!db.loaded) {
        *error = "cannot read the FIBEX file '" + path + "'";
        return false;
    }
    const fibex::Cluster* cluster = nullptr;
    for (const auto& entry : db.clusters) {
        if (clusterName.empty() || entry.first == clusterName ||
            entry.second.shortName == clusterName) {
            cluster = &entry.second;
            break;
        }
    }
    if (cluster == nullptr) {
        *error = clusterName.empty() ? "the file has no cluster"
                                     : "no cluster '" + clusterName + "' in the file";
        return false;
    }
    cycleMicros_ =
        cluster->cycle != 0 ? cluster->cycle : cluster->macroPerCycle * cluster->macrotick;

    // Frame triggering ID -> the ECUs whose output ports name it.
    std::map<std::string, std::vector<std::string>> senders;
    std::set<std::string> ecuNames;
    for (const auto& entry : db.ecus) {
        const fibex::Ecu& ecu = entry.second;
        ecuNames.insert(ecu.shortName);
        for (const fibex::Connector& connector : ecu.connectors)
            for (const fibex::Port& port : connector.outputPorts)
                senders[port.frameTriggeringId].push_back(ecu.shortName);
    }
    for (const std::string& name : ecus) {
        if (ecuNames.count(name) == 0) {
            *error = "no ECU '" + name + "' in the file";
            return false;
        }
    }
    SenderFilter plays{ecus};
    for (const fibex::Channel* channel : cluster->channels)
        if (channel != nullptr)
            for (const fibex::FrameTriggering& t : channel->frameTriggerings)
                plays.anySender = plays.anySender || senders.count(t.id) != 0;

    for (const fibex::Channel* channel : cluster->channels) {
        if (channel == nullptr) continue;
        const auto channels = static_cast<std::uint8_t>(channel->channelMask & 3u);
        for (const fibex::FrameTriggering& t : channel->frameTriggerings) {
            if (t.frame == nullptr || t.frame->shortName.empty() || !plays(senders[t.id])) continue;
            const std::size_t index = frameIndex(t.frame->shortName);
            Frame& frame = frames_[index];
            if (frame.signals.empty()) {
                frame.length = t.frame->byteLength;
                frame.signals = signalsOf<dbapi::FibexView>(db, *t.frame, fibexLimits);
            }
            for (const xml::SlotTiming& timing : t.timings)
                addTiming(index, timing.slot, timing.baseCycle, timing.repetition,
                          channels != 0 ? channels : 1);
        }
    }
    return true;
}

bool Restbus::loadAutosar(const std::string& path, const std::string& clusterName,
                          const std::vector<std::string>& ecus, std::string* error) {
    autosar::AutoSarReader reader(path, /*readAll*/ true);
    if (!reader.IsLoaded()) {
        *error = "cannot read the AUTOSAR file '" + path + "'";
        return false;
    }
    const autosar::tAutoSarDatabase& db = reader.Database();
    const autosar::tAutoSarClusterConfig* cluster = nullptr;
    for (const auto& entry : db.clusters) {
        if (clusterName.empty() || entry.first == clusterName) {
            cluster = &entry.second;
            break;
        }
    }
    if (cluster == nullptr) {
        *error = clusterName.empty() ? "the file has no cluster"
                                     : "no cluster '" + clusterName + "' in the file";
        return false;
    }
    const double cycleSeconds =
        cluster->cycle > 0.0 ? cluster->cycle : cluster->macroPerCycle * cluster->macrotickDuration;
    cycleMicros_ = static_cast<unsigned>(std::lround(cycleSeconds * 1e6));

    for (const std::string& name : ecus) {
        if (db.ecus.count(name) == 0) {
            *error = "no ECU '" + name + "' in the file";
            return false;
        }
    }
    auto sendersOf = [](const autosar::tAutoSarFrameTriggering& t) {
        std::vector<std::string> out;
        for (const autosar::tAutoSarPortInfo* port : t.ports)
            if (port != nullptr && !port->isInput && !port->ecuName.empty())
                out.push_back(port->ecuName);
        return out;
    };
    SenderFilter plays{ecus};
    for (const autosar::tAutoSarChannel* channel : cluster->channels)
        if (channel != nullptr)
            for (const autosar::tAutoSarFrameTriggering* t : channel->frameTriggerings)
                plays.anySender = plays.anySender || (t != nullptr && !sendersOf(*t).empty());

    auto limits = [&db](const autosar::tAutoSarSignalInfo& s, const dbapi::SignalCoding& c) {
        return autosarLimits(db, s, c);
    };
    for (const autosar::tAutoSarChannel* channel : cluster->channels) {
        if (channel == nullptr) continue;
        for (const autosar::tAutoSarFrameTriggering* t : channel->frameTriggerings) {
            if (t == nullptr || t->frame == nullptr || t->frame->name.empty() ||
                !plays(sendersOf(*t)))
                continue;
            const std::size_t index = frameIndex(t->frame->name);
            Frame& frame = frames_[index];
            if (frame.signals.empty()) {
                frame.length = t->frame->frameLength;
                frame.signals = signalsOf<dbapi::AutosarView>(db, *t->frame, limits);
            }
            const auto channels = static_cast<std::uint8_t>(t->channelMask & 3u);
            for (const xml::SlotTiming& timing : t->timings)
                addTiming(index, timing.slot, timing.baseCycle, timing.repetition,
                          channels != 0 ? channels : 1);
        }
    }
    return true;
}

std::size_t Restbus::frameIndex(const std::string& name) {
    for (std::size_t i = 0; i < frames_.size(); ++i)
        if (frames_[i].name == name) return i;
    frames_.push_back(Frame{});
    frames_.back().name = name;
    return frames_.size() - 1;
}

// Slot 0 and base cycles from 64 on are never sent; a repetition of 0 counts as 1. The same
// timing of a frame on both channels is one entry.
void Restbus::addTiming(std::size_t frame, std::uint16_t slot, std::uint8_t base,
                        std::uint8_t repetition, std::uint8_t channels) {
    if (slot == 0 || base >= 64) return;
    if (repetition == 0) repetition = 1;
    for (Slot& s : schedule_) {
        if (s.frame == frame && s.slot == slot && s.repetition == repetition &&
            s.baseCycle % repetition == base % repetition) {
            s.channels = static_cast<std::uint8_t>(s.channels | channels);
            return;
        }
    }
    schedule_.push_back({slot, base, repetition, channels, frame});
}

void Restbus::finish() {
    std::stable_sort(schedule_.begin(), schedule_.end(),
                     [](const Slot& a, const Slot& b) { return a.slot < b.slot; });
    // Frames without a timing (event-triggered only) are not kept.
    std::vector<Frame> kept;
    std::vector<std::size_t> moved(frames_.size(), 0);
    for (std::size_t i = 0; i < frames_.size(); ++i) {
        const bool used = std::any_of(schedule_.begin(), schedule_.end(),
                                      [i](const Slot& s) { return s.frame == i; });
        if (!used) continue;
        moved[i] = kept.size();
        kept.push_back(std::move(frames_[i]));
    }
    for (Slot& s : schedule_)
        s.frame = moved[s.frame];
    frames_ = std::move(kept);
}

std::int64_t Restbus::rawAt(const Signal& s, std::uint64_t n) {
    const std::uint64_t span = static_cast<std::uint64_t>(s.rawMax - s.rawMin);
    switch (s.motion) {
        case Motion::UpdateBit:
            return 1;
        case Motion::Counter:
            return s.rawMin + static_cast<std::int64_t>((n + s.phase) % (span + 1));
        case Motion::Ramp:
            break;
    }
    if (span == 0) return s.rawMin;
    // A triangle that moves at least one raw step per transmission.
    const std::uint64_t step = std::max<std::uint64_t>(1, span / kRampSteps);
    const std::uint64_t steps = (span + step - 1) / step;
    const std::uint64_t t = (n + s.phase) % (2 * steps);
    const std::uint64_t position = t < steps ? t : 2 * steps - t;
    return s.rawMin + static_cast<std::int64_t>(std::min(span, position * step));
}

float Restbus::physicalAt(const Signal& s, std::uint64_t n) {
    if (s.motion == Motion::UpdateBit) return 1.0f;
    const std::int64_t raw = rawAt(s, n);
    const dbapi::SignalCoding& c = s.coding;
    const bool scaled = c.scaling == dbapi::Scaling::Linear && c.hasScale;
    const double f = scaled ? c.factor : 1.0, o = scaled ? c.offset : 0.0;
    float value = static_cast<float>(static_cast<double>(raw) * f + o);
    // Large raw values do not survive the float: move to the nearest float that encodes inside
    // the range.
    for (int i = 0; i < 64; ++i) {
        const std::int64_t back = dbapi::rawFromPhysical(c, value);
        if (back >= s.rawMin && back <= s.rawMax) break;
        const bool down = (back > s.rawMax) == (f > 0);
        value = std::nextafter(value, down ? -HUGE_VALF : HUGE_VALF);
    }
    return value;
}

std::vector<std::uint8_t> Restbus::payload(std::size_t index, std::uint64_t n) const {
    const Frame& frame = frames_[index];
    const auto length = static_cast<std::uint8_t>(std::min<unsigned>(254, frame.length + 1u) & ~1u);
    std::vector<std::uint8_t> out(length, 0), scratch(length), mask(length);
    for (const Signal& s : frame.signals) {
        const dbapi::SignalCoding& c = s.coding;
        if (s.motion == Motion::UpdateBit) {
            dbapi::encodeUpdateBit(c.bitPosition, 1.0f, out.data(), length);
            continue;
        }
        // Encoded on its own and merged through the field's mask: the codec writes the bits
        // of a negative value above the field too.
        std::fill(scratch.begin(), scratch.end(), 0);
        std::fill(mask.begin(), mask.end(), 0);
        if (dbapi::encodeValue(c, physicalAt(s, n), scratch.data(), length) != dbapi::kOk) continue;
        dbapi::placeField(mask.data(), length, c.bitPosition, c.bitLength, c.msbFirst, true,
                          static_cast<std::int64_t>((std::uint64_t{1} << c.bitLength) - 1));
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = static_cast<std::uint8_t>((out[i] & ~mask[i]) | (scratch[i] & mask[i]));
    }
    return out;
}

std::vector<FlexRayEntry> Restbus::cycleEntries(
    std::uint8_t cycle, const std::function<std::uint8_t(std::uint16_t)>& hostChannels) {
    std::vector<FlexRayEntry> entries;
    std::vector<bool> sent(frames_.size(), false);
    for (const Slot& s : schedule_) {
        if (!due(s, cycle)) continue;
        const auto channels =
            static_cast<std::uint8_t>(s.channels & ~(hostChannels ? hostChannels(s.slot) : 0u));
        if (channels == 0) continue;
        FlexRayEntry e;
        e.slot = s.slot;
        e.cycle = cycle;
        e.statusWord = static_cast<std::uint16_t>(((channels & 1u) != 0 ? 0x0080u : 0u) |
                                                  ((channels & 2u) != 0 ? 0x8000u : 0u));
        e.payload = payload(s.frame, frames_[s.frame].sent);
        entries.push_back(std::move(e));
        sent[s.frame] = true;
    }
    for (std::size_t i = 0; i < frames_.size(); ++i)
        if (sent[i]) ++frames_[i].sent;
    return entries;
}

}  // namespace emu
}  // namespace kelo
