#include "emulator.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

#include "emulator_impl.h"

namespace kelo {
namespace emu {

// ---- link ----------------------------------------------------------------------------------

DeviceEmulator::Impl::Impl(std::string addr, std::uint16_t p)
    : address(std::move(addr)), port(p), engine(0, this, engineLock, this), model(Clock::now()) {}

bool DeviceEmulator::Impl::host(Endpoint& out) const {
    const std::uint64_t v = hostPacked.load();
    if (v == 0) return false;
    out.address = static_cast<std::uint32_t>(v >> 16);
    out.port = static_cast<std::uint16_t>(v);
    return true;
}

void DeviceEmulator::Impl::sendDatagram(const std::uint8_t* data, std::size_t length) {
    outBytes.insert(outBytes.end(), data, data + length);
    outSizes.push_back(length);
}

namespace {

std::string endpointText(const Endpoint& e) {
    char text[32];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u:%u", e.address >> 24, (e.address >> 16) & 255u,
                  (e.address >> 8) & 255u, e.address & 255u, static_cast<unsigned>(e.port));
    return text;
}

// What the log says about a frame leaving: a reply's status, an upload's entry count and size.
std::string sentText(std::uint8_t code, const std::uint8_t* payload, std::size_t length, bool reply,
                     const SendFaults& f) {
    std::string text;
    const std::size_t at = kReplyShapes[code].status;
    if (reply && at < length) text = "status " + std::to_string(payload[at]);
    if (!reply) {
        std::size_t entries = 0;
        if (code == kUploadFlexRay && length >= 2) entries = payload[1];
        if ((code == kUploadCan || code == kUploadStatus) && length >= kMultiHeaderSize)
            entries = le32(payload + 16);
        text = std::to_string(entries) + " entries";
    }
    text += ", " + std::to_string(length) + " bytes";
    if (f.drop) text += " (dropped)";
    if (f.corruptHeader) text += " (header CRC corrupted)";
    if (f.corruptPayload) text += " (payload CRC corrupted)";
    return text;
}

}  // namespace

void DeviceEmulator::Impl::log(const char* direction, std::uint8_t code,
                               const std::string& detail) {
    const double seconds = static_cast<double>(model.microsSinceStart()) / 1e6;
    const char* name = commandName(code);
    char head[64];
    std::snprintf(head, sizeof head, "%10.3f %s %3u %s ", seconds, direction,
                  static_cast<unsigned>(code), name ? name : "?");
    std::lock_guard<std::mutex> g(logLock);
    if (logSink) logSink(head + detail);
}

void DeviceEmulator::Impl::emit(std::uint8_t code, const std::uint8_t* payload, std::size_t length,
                                bool reply, std::uint16_t sequence, const Endpoint& to,
                                const FrameFaults& decided) {
    const SendFaults f = faults.forSend(code, decided);
    if (logs(reply ? 1 : 2))
        log(reply ? "tx" : "up", code, sentText(code, payload, length, reply, f));
    if (f.drop) return;
    const auto len = static_cast<std::uint16_t>(std::min<std::size_t>(length, 0xFFFF));

    std::lock_guard<std::mutex> g(outLock);
    outBytes.clear();
    outSizes.clear();
    if (reply)
        engine.sendReply(sequence, code, payload, len);
    else
        engine.send(code, payload, len);
    if (outBytes.empty()) return;
    if (f.corruptHeader) outBytes[7] ^= 0x5A;                   // low byte of the header CRC
    if (f.corruptPayload && len != 0) outBytes.back() ^= 0x5A;  // low byte of the payload CRC

    std::size_t at = 0;
    for (std::size_t size : outSizes) {
        const std::size_t piece = f.split == 0 ? size : f.split;
        for (std::size_t done = 0; done < size; done += piece) {
            const std::size_t n = std::min(piece, size - done);
            socket.sendTo(to.address, to.port, outBytes.data() + at + done, n);
            if (f.twice) socket.sendTo(to.address, to.port, outBytes.data() + at + done, n);
        }
        at += size;
    }
}

void DeviceEmulator::Impl::emit(const Outgoing& o) {
    emit(o.code, o.payload.data(), o.payload.size(), o.reply, o.sequence, o.to, o.faults);
}

bool DeviceEmulator::Impl::upload(std::uint8_t code, const Bytes& payload) {
    Endpoint to;
    if (!host(to)) return false;
    emit(code, payload.data(), payload.size(), false, 0, to);
    return true;
}

void DeviceEmulator::Impl::rxLoop() {
    std::vector<std::uint8_t> buffer(65536);
    while (running.load()) {
        std::uint32_t fromAddress = 0;
        std::uint16_t fromPort = 0;
        const int n = socket.receive(buffer.data(), buffer.size(), &fromAddress, &fromPort);
        if (n <= 0 || !running.load()) continue;
        from = {fromAddress, fromPort};
        engine.feed(buffer.data(), static_cast<std::size_t>(n));
    }
}

void DeviceEmulator::Impl::onFrame(const FrameMessage& m) {
    const Request r{m.payload, m.payload ? m.length : std::size_t{0}};
    const std::uint64_t packed =
        (std::uint64_t{1} << 48) | (std::uint64_t{from.address} << 16) | from.port;
    const std::uint64_t previous = hostPacked.exchange(packed);
    if (previous != packed && (previous == 0 || resetOnNewClient.load())) {
        const bool reset = previous != 0;
        if (reset) {
            std::lock_guard<std::mutex> g(model.lock);
            model.resetClient();
        }
        if (reset) poke();
        if (logs(1)) {
            std::lock_guard<std::mutex> g(logLock);
            if (logSink)
                logSink("new client " + endpointText(from) + (reset ? ": device reset" : ""));
        }
    }
    if (logs(1))
        log("rx", m.command,
            "seq " + std::to_string(m.sequence) + ", " + std::to_string(r.size) + " bytes");
    const bool answered = kReplyShapes[m.command].reply != 0;  // 22, 255 and unknown codes: no
    // Every fault decision for this frame's reply is taken before the frame is recorded, so a
    // test that has seen the frame (waitFor) can re-arm the plan for the next command safely.
    const ReplyFaults plan = answered ? faults.forReply(m.command) : ReplyFaults{};
    {
        std::lock_guard<std::mutex> g(rxLock);
        ReceivedFrame f;
        f.sequence = m.sequence;
        f.command = m.command;
        f.payload.assign(r.data, r.data + r.size);
        frames.push_back(std::move(f));
        ++counts[m.command];
    }
    rxCv.notify_all();
    if (!answered) return;

    DeviceModel::Effects effects;
    Outgoing reply{m.command, true, m.sequence, {}, from, plan.frame};
    reply.payload = model.answer(m.command, r, plan.refused, plan.refuseStatus, effects);
    if (effects.wake) poke();
    for (Outgoing& o : effects.before) {
        o.to = from;
        emit(o);
    }
    if (plan.delayMs != 0)
        delayReply(std::move(reply), plan.delayMs);
    else
        emit(reply);
    for (Outgoing& o : effects.after) {
        o.to = from;
        emit(o);
    }
}

// ---- DeviceEmulator ----------------------------------------------------------------------------

DeviceEmulator::DeviceEmulator(std::string address, std::uint16_t port)
    : impl_(std::make_unique<Impl>(std::move(address), port)) {}

DeviceEmulator::~DeviceEmulator() {
    stop();
}

bool DeviceEmulator::start() {
    Impl& d = *impl_;
    std::lock_guard<std::mutex> g(d.lifecycleLock);
    if (d.running.load()) return true;
    const std::uint32_t address = parseIPv4(d.address.c_str());
    if (address == 0xFFFFFFFFu || !netStartup() || !d.socket.open()) return false;
    d.socket.setReceiveBuffer(0x400000);
    if (!d.socket.setReceiveTimeout(1000) || !d.socket.bind(address, d.port)) {
        d.socket.close();
        return false;
    }
    d.running.store(true);
    {
        std::lock_guard<std::mutex> s(d.simLock);
        d.simStop = false;
    }
    d.rxThread = std::thread([&d] { d.rxLoop(); });
    d.simThread = std::thread([&d] { d.simLoop(); });
    return true;
}

void DeviceEmulator::stop() {
    Impl& d = *impl_;
    std::lock_guard<std::mutex> g(d.lifecycleLock);
    d.stopFlood();
    {
        std::lock_guard<std::mutex> s(d.simLock);
        d.simStop = true;
        d.delayed.clear();
    }
    d.simCv.notify_all();
    if (d.simThread.joinable()) d.simThread.join();
    d.running.store(false);
    d.socket.interrupt();
    if (d.rxThread.joinable()) d.rxThread.join();
    d.socket.close();
}

const std::string& DeviceEmulator::address() const {
    return impl_->address;
}

// ---- identity and device state ----

void DeviceEmulator::setDeviceInfo(const std::array<std::uint8_t, 72>& info) {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    impl_->model.info = info;
}

void DeviceEmulator::setSoftwareVersion(std::uint32_t version) {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    putLe32(impl_->model.info.data(), version);
}

void DeviceEmulator::setNodeState(std::uint8_t pocState, std::uint8_t subState) {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    impl_->model.setPoc(pocState);
    impl_->model.subState = subState;
}

void DeviceEmulator::setPsrWords(const std::array<std::uint16_t, 4>& words) {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    impl_->model.psr = words;
}

void DeviceEmulator::setNmVector(const std::vector<std::uint8_t>& vector) {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    impl_->model.nmVector.assign(vector.begin(),
                                 vector.begin() + std::min<std::size_t>(vector.size(), 12));
}

std::uint32_t DeviceEmulator::registerWord(std::uint8_t kind, std::uint8_t controller) const {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    auto it = impl_->model.registers.find(static_cast<std::uint16_t>(kind << 8 | controller));
    return it == impl_->model.registers.end() ? 0 : it->second;
}

void DeviceEmulator::setRegisterWord(std::uint8_t kind, std::uint8_t controller,
                                     std::uint32_t word) {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    impl_->model.registers[static_cast<std::uint16_t>(kind << 8 | controller)] = word;
}

bool DeviceEmulator::nodeStarted() const {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    return impl_->model.started;
}

bool DeviceEmulator::uploadsOn() const {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    return impl_->model.uploads;
}

bool DeviceEmulator::canStarted() const {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    return impl_->model.canOn;
}

std::vector<SlotBuffer> DeviceEmulator::slotBuffers() const {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    return impl_->model.buffers;
}

FifoConfig DeviceEmulator::fifo(std::uint8_t controller) const {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    const auto it = impl_->model.fifos.find(controller);
    return it == impl_->model.fifos.end() ? FifoConfig{} : it->second;
}

void DeviceEmulator::setCyclePeriodMs(unsigned ms) {
    {
        std::lock_guard<std::mutex> g(impl_->model.lock);
        impl_->model.cycleMs = ms == 0 ? 1 : ms;
        impl_->model.cycleMsSet = true;
    }
    impl_->poke();
}

unsigned DeviceEmulator::cyclePeriodMs() const {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    return impl_->model.cycleMs;
}

bool DeviceEmulator::loadRestbus(const std::string& databasePath, const std::string& cluster,
                                 const std::vector<std::string>& ecus, std::string* error) {
    auto restbus = std::make_unique<Restbus>();
    if (!restbus->load(databasePath, cluster, ecus, error)) return false;
    {
        std::lock_guard<std::mutex> g(impl_->model.lock);
        // The cluster's cycle time in whole milliseconds, at least 1.
        if (!impl_->model.cycleMsSet && restbus->cycleMicros() != 0)
            impl_->model.cycleMs = std::max(1u, (restbus->cycleMicros() + 500u) / 1000u);
        impl_->restbus = std::move(restbus);
    }
    impl_->poke();
    return true;
}

void DeviceEmulator::clearRestbus() {
    std::lock_guard<std::mutex> g(impl_->model.lock);
    impl_->restbus.reset();
}

void DeviceEmulator::setResetOnNewClient(bool on) {
    impl_->resetOnNewClient.store(on);
}

// ---- what the host sent ----

std::vector<ReceivedFrame> DeviceEmulator::received() const {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    return impl_->frames;
}

std::vector<ReceivedFrame> DeviceEmulator::received(std::uint8_t command) const {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    std::vector<ReceivedFrame> out;
    for (const ReceivedFrame& f : impl_->frames)
        if (f.command == command) out.push_back(f);
    return out;
}

std::size_t DeviceEmulator::count(std::uint8_t command) const {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    return impl_->counts[command];
}

void DeviceEmulator::clearReceived() {
    std::lock_guard<std::mutex> g(impl_->rxLock);
    impl_->frames.clear();
    impl_->counts.fill(0);
}

bool DeviceEmulator::waitFor(std::uint8_t command, std::size_t n, unsigned timeoutMs) const {
    std::unique_lock<std::mutex> g(impl_->rxLock);
    return impl_->rxCv.wait_for(g, std::chrono::milliseconds(timeoutMs),
                                [&] { return impl_->counts[command] >= n; });
}

// ---- fault plan ----

void DeviceEmulator::refuse(std::uint8_t command, std::uint8_t status, int times) {
    impl_->faults.refuse(command, status, times);
}
void DeviceEmulator::drop(std::uint8_t command, int times) {
    impl_->faults.drop(command, times);
}
void DeviceEmulator::delay(std::uint8_t command, unsigned ms, int times) {
    impl_->faults.delay(command, ms, times);
}
void DeviceEmulator::corruptHeaderCrc(std::uint8_t command, int times) {
    impl_->faults.corruptHeaderCrc(command, times);
}
void DeviceEmulator::corruptPayloadCrc(std::uint8_t command, int times) {
    impl_->faults.corruptPayloadCrc(command, times);
}
void DeviceEmulator::corruptReplyHeaderCrc(int times) {
    impl_->faults.corruptReplyHeaderCrc(times);
}
void DeviceEmulator::splitDatagrams(std::size_t maxBytes) {
    impl_->faults.splitDatagrams(maxBytes);
}
void DeviceEmulator::duplicateDatagrams(bool on) {
    impl_->faults.duplicateDatagrams(on);
}
void DeviceEmulator::clearFaults() {
    impl_->faults.clear();
}

// ---- uploads and raw traffic ----

bool DeviceEmulator::hostKnown() const {
    Endpoint to;
    return impl_->host(to);
}

void DeviceEmulator::sendRaw(const std::vector<std::uint8_t>& datagram) {
    Endpoint to;
    if (!impl_->host(to)) return;
    std::lock_guard<std::mutex> g(impl_->outLock);
    impl_->socket.sendTo(to.address, to.port, datagram.data(), datagram.size());
}

void DeviceEmulator::sendFrame(std::uint8_t command, const std::vector<std::uint8_t>& payload,
                               std::uint16_t sequence) {
    Endpoint to;
    if (!impl_->host(to)) return;
    impl_->emit(command, payload.data(), payload.size(), sequence != 0, sequence, to);
}

void DeviceEmulator::uploadFlexRay(const std::vector<FlexRayEntry>& entries) {
    impl_->uploadFlexRayEntries(entries);
}

void DeviceEmulator::uploadCan(const std::vector<CanEntry>& entries) {
    std::uint8_t channel = 0;
    {
        std::lock_guard<std::mutex> g(impl_->model.lock);
        channel = impl_->model.canChannel;
    }
    impl_->uploadCanEntries(entries, channel);
}

void DeviceEmulator::uploadBusState(std::uint16_t state) {
    impl_->upload(kUploadStatus, busStateUpload(state, 0, impl_->model.microsSinceStart()));
}

void DeviceEmulator::setCanTraffic(unsigned periodMs, std::uint32_t identifier,
                                   std::uint8_t length) {
    {
        std::lock_guard<std::mutex> g(impl_->model.lock);
        impl_->model.canTraffic.clear();
    }
    if (periodMs != 0) addCanTraffic(periodMs, identifier, length);
    impl_->poke();
}

void DeviceEmulator::addCanTraffic(unsigned periodMs, std::uint32_t identifier,
                                   std::uint8_t length) {
    if (periodMs == 0) return;
    {
        std::lock_guard<std::mutex> g(impl_->model.lock);
        DeviceModel::CanTraffic t;
        t.periodMs = periodMs;
        t.identifier = identifier;
        t.length = std::min<std::uint8_t>(length, 64);
        impl_->model.canTraffic.push_back(t);
    }
    impl_->poke();
}

void DeviceEmulator::Impl::startFloodThread(std::uint64_t total, std::uint64_t rate,
                                            std::uint8_t words, bool whileUploading) {
    std::lock_guard<std::mutex> g(lifecycleLock);
    stopFlood();
    {
        std::lock_guard<std::mutex> f(floodLock);
        floodStop = false;
        floodDone = false;
    }
    floodCount.store(0);
    floodThread = std::thread([this, total, rate, words, whileUploading] {
        floodLoop(total, rate, words, whileUploading);
    });
}

void DeviceEmulator::startFlood(std::uint64_t total, std::uint64_t recordsPerSecond,
                                std::uint8_t words) {
    impl_->startFloodThread(total, recordsPerSecond, words, false);
}

void DeviceEmulator::startUploadFlood(std::uint64_t recordsPerSecond, std::uint8_t words) {
    impl_->startFloodThread(~std::uint64_t{0}, recordsPerSecond, words, true);
}

void DeviceEmulator::setTrafficLog(int level, std::function<void(const std::string&)> sink) {
    std::lock_guard<std::mutex> g(impl_->logLock);
    impl_->logSink = std::move(sink);
    impl_->logLevel.store(impl_->logSink ? level : 0);
}

bool DeviceEmulator::waitFlood(unsigned timeoutMs) {
    std::unique_lock<std::mutex> g(impl_->floodLock);
    return impl_->floodCv.wait_for(g, std::chrono::milliseconds(timeoutMs),
                                   [&] { return impl_->floodDone; });
}

std::uint64_t DeviceEmulator::floodSent() const {
    return impl_->floodCount.load();
}

}  // namespace emu
}  // namespace kelo
