#include <algorithm>
#include <chrono>
#include <cstring>

#include "emulator_impl.h"

namespace kelo {
namespace emu {

namespace {
constexpr auto kTickPeriod = std::chrono::milliseconds(50);
constexpr auto kFloodLatency = std::chrono::milliseconds(1);  // longest a flood record is held
}  // namespace

void DeviceEmulator::Impl::poke() {
    {
        std::lock_guard<std::mutex> g(simLock);
        simDirty = true;
    }
    simCv.notify_all();
}

void DeviceEmulator::Impl::delayReply(Outgoing reply, unsigned ms) {
    {
        std::lock_guard<std::mutex> g(simLock);
        delayed.emplace(Clock::now() + std::chrono::milliseconds(ms), std::move(reply));
        simDirty = true;
    }
    simCv.notify_all();
}

void DeviceEmulator::Impl::uploadFlexRayEntries(const std::vector<FlexRayEntry>& entries) {
    packFlexRay(entries, [&](const Bytes& payload) { upload(kUploadFlexRay, payload); });
}

void DeviceEmulator::Impl::uploadCanEntries(const std::vector<CanEntry>& entries,
                                            std::uint8_t channel) {
    packCan(
        entries, [channel](std::size_t) { return channel; },
        [&](const Bytes& payload) { upload(kUploadCan, payload); });
}

void DeviceEmulator::Impl::simLoop() {
    Clock::time_point nextTick = Clock::now() + kTickPeriod;
    std::unique_lock<std::mutex> lk(simLock);
    while (!simStop) {
        Clock::time_point wakeAt = nextTick;
        if (cycling) wakeAt = std::min(wakeAt, nextCycle);
        if (canTicking) wakeAt = std::min(wakeAt, nextCan);
        if (!delayed.empty()) wakeAt = std::min(wakeAt, delayed.begin()->first);
        simCv.wait_until(lk, wakeAt, [&] { return simStop || simDirty; });
        if (simStop) break;
        simDirty = false;
        Clock::time_point now = Clock::now();
        std::vector<Outgoing> due;
        while (!delayed.empty() && delayed.begin()->first <= now) {
            due.push_back(std::move(delayed.begin()->second));
            delayed.erase(delayed.begin());
        }
        lk.unlock();

        for (const Outgoing& o : due)
            emit(o);
        if (now >= nextTick) {
            engine.tick();
            nextTick += kTickPeriod;
            if (nextTick <= now) nextTick = now + kTickPeriod;
        }
        runCycles(now);
        runCanTraffic(now);
        lk.lock();
    }
}

// One FlexRay cycle per period while the node is started. The state lock is held while a
// cycle's upload is sent, so no upload leaves after the reply to 110 or 114.
void DeviceEmulator::Impl::runCycles(Clock::time_point now) {
    std::lock_guard<std::mutex> g(model.lock);
    if (!model.started) {
        cycling = false;
        return;
    }
    const auto period = std::chrono::milliseconds(model.cycleMs);
    if (!cycling || seenGeneration != model.startGeneration) {
        cycling = true;
        seenGeneration = model.startGeneration;
        nextCycle = now;
        cycle = 0;
        cycleCount = 0;
    }
    if (now - nextCycle > 8 * period) nextCycle = now;  // fell behind: skip, do not burst
    while (nextCycle <= now) {
        if (model.uploads) uploadCycle();
        cycle = static_cast<std::uint8_t>((cycle + 1) % 64);
        ++cycleCount;
        nextCycle += period;
    }
}

void DeviceEmulator::Impl::uploadCycle() {
    std::vector<FlexRayEntry> entries;
    const std::uint64_t stamp = model.nanosSinceStart();
    for (std::size_t i = 0; i < kBufferCount; ++i) {
        const SlotBuffer& b = model.buffers[i];
        if (!b.configured || cycle % b.repetition != b.baseCycle) continue;
        FlexRayEntry e;
        e.words[0] = static_cast<std::uint32_t>(stamp);
        e.words[1] = static_cast<std::uint32_t>(stamp >> 32);
        e.words[2] = cycleCount;
        e.slot = b.slot;
        e.cycle = cycle;
        e.statusWord =
            static_cast<std::uint16_t>((b.channelA ? 0x0080u : 0u) | (b.channelB ? 0x8000u : 0u));
        e.payload.assign(2u * b.words, 0);
        std::copy_n(b.data.begin(), std::min(b.data.size(), e.payload.size()), e.payload.begin());
        entries.push_back(std::move(e));
    }
    if (restbus) {
        // The restbus leaves out the channels the host's own transmit buffers send this cycle.
        auto hostChannels = [this](std::uint16_t slot) {
            unsigned channels = 0;
            for (const SlotBuffer& b : model.buffers)
                if (b.configured && b.transmit && b.slot == slot &&
                    cycle % b.repetition == b.baseCycle % b.repetition)
                    channels |= (b.channelA ? 1u : 0u) | (b.channelB ? 2u : 0u);
            return static_cast<std::uint8_t>(channels);
        };
        for (FlexRayEntry& e : restbus->cycleEntries(cycle, hostChannels)) {
            e.words[0] = static_cast<std::uint32_t>(stamp);
            e.words[1] = static_cast<std::uint32_t>(stamp >> 32);
            e.words[2] = cycleCount;
            entries.push_back(std::move(e));
        }
        std::stable_sort(
            entries.begin(), entries.end(),
            [](const FlexRayEntry& a, const FlexRayEntry& b) { return a.slot < b.slot; });
    }
    if (!entries.empty()) uploadFlexRayEntries(entries);
}

// Each generated CAN frame on its own schedule while the channel is started.
void DeviceEmulator::Impl::runCanTraffic(Clock::time_point now) {
    std::lock_guard<std::mutex> g(model.lock);
    canTicking = false;
    for (DeviceModel::CanTraffic& t : model.canTraffic) {
        if (!model.canOn) {
            t.ticking = false;
            continue;
        }
        const auto period = std::chrono::milliseconds(t.periodMs);
        if (!t.ticking) {
            t.ticking = true;
            t.next = now;
        }
        if (now - t.next > 8 * period) t.next = now;
        while (t.next <= now) {
            CanEntry e;
            e.timestampUs = model.microsSinceStart();
            e.identifier = t.identifier;
            if (t.identifier > 0x7FF) e.flags = 1u << 30;  // frame type 1: extended identifier
            e.data.resize(t.length);
            for (std::size_t i = 0; i < e.data.size(); ++i)
                e.data[i] = static_cast<std::uint8_t>(t.generated + i);
            ++t.generated;
            uploadCanEntries({e}, model.canChannel);
            t.next += period;
        }
        nextCan = canTicking ? std::min(nextCan, t.next) : t.next;
        canTicking = true;
    }
}

void DeviceEmulator::Impl::floodLoop(std::uint64_t total, std::uint64_t rate, std::uint8_t words,
                                     bool whileUploading) {
    Endpoint to;
    const std::size_t entrySize = kFrUploadEntryHead + 2u * words;
    const std::size_t perFrame = std::min<std::size_t>(255, (kMaxUploadPayload - 2) / entrySize);
    Bytes payload(kMaxUploadPayload, 0);
    Clock::time_point begin = Clock::now();
    Clock::time_point lastFrame = begin;
    std::uint64_t sent = 0;
    std::uint64_t paced = 0;  // records sent since `begin`, the start of the pace
    // Time by which the first `records` records since `begin` are due at the requested rate.
    auto dueAt = [&](std::uint64_t records) {
        return begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                           static_cast<double>(records) / static_cast<double>(rate)));
    };
    auto uploading = [&] {
        std::lock_guard<std::mutex> g(model.lock);
        return model.uploads;
    };
    std::unique_lock<std::mutex> lk(floodLock);
    while (sent < total && !floodStop) {
        if (!host(to) || (whileUploading && !uploading())) {
            if (!whileUploading) break;
            // Paused: poll for the uploads, then pace from the moment they are back.
            floodCv.wait_for(lk, std::chrono::milliseconds(5), [&] { return floodStop; });
            begin = lastFrame = Clock::now();
            paced = 0;
            continue;
        }
        // Records the clock allows now; a rate of 0 means no limit.
        const Clock::time_point now = Clock::now();
        std::uint64_t available = total - sent;
        if (rate != 0) {
            const double left =
                static_cast<double>(rate) * std::chrono::duration<double>(now - begin).count() -
                static_cast<double>(paced);
            if (left < static_cast<double>(available))
                available = left <= 0 ? 0 : static_cast<std::uint64_t>(left);
        }
        // Full frames when the rate allows; a partial one once a record waited 1 ms.
        const std::uint64_t want = std::min<std::uint64_t>(perFrame, total - sent);
        if (available < want && (available == 0 || now - lastFrame < kFloodLatency)) {
            const auto next = std::min(dueAt(paced + want),
                                       std::max(lastFrame + kFloodLatency, dueAt(paced + 1)));
            floodCv.wait_until(lk, next, [&] { return floodStop; });
            continue;
        }
        lastFrame = now;
        lk.unlock();
        const std::size_t n = static_cast<std::size_t>(std::min(want, available));
        const std::uint64_t stamp = model.nanosSinceStart();
        payload[0] = 0;
        payload[1] = static_cast<std::uint8_t>(n);
        std::uint8_t* e = payload.data() + 2;
        for (std::size_t i = 0; i < n; ++i, e += entrySize) {
            const auto counter = static_cast<std::uint32_t>(sent + i);
            std::memset(e, 0, entrySize);
            putLe32(e, counter);
            putLe64(e + 4, stamp);
            putLe16(e + 18, 1);  // slot 1
            e[20] = static_cast<std::uint8_t>(counter & 63u);
            e[21] = words;
            putLe16(e + 24, 0x8080);
            if (words >= 2) putLe32(e + kFrUploadEntryHead, counter);
        }
        bool emitted = true;
        if (whileUploading) {
            // Under the state lock, as the cycles' uploads: none leaves after the reply to 114.
            std::lock_guard<std::mutex> g(model.lock);
            emitted = model.uploads;
            if (emitted) emit(kUploadFlexRay, payload.data(), 2 + n * entrySize, false, 0, to);
        } else {
            emit(kUploadFlexRay, payload.data(), 2 + n * entrySize, false, 0, to);
        }
        if (emitted) {
            sent += n;
            paced += n;
            floodCount.store(sent);
        }
        lk.lock();
    }
    floodDone = true;
    lk.unlock();
    floodCv.notify_all();
}

void DeviceEmulator::Impl::stopFlood() {
    {
        std::lock_guard<std::mutex> g(floodLock);
        floodStop = true;
    }
    floodCv.notify_all();
    if (floodThread.joinable()) floodThread.join();
}

}  // namespace emu
}  // namespace kelo
