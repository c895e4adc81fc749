#include "fault_plan.h"

namespace kelo {
namespace emu {

namespace {
// Uses one application of a fault: < 0 applies for ever, > 0 counts down, 0 is off.
bool take(int& times) {
    if (times < 0) return true;
    if (times == 0) return false;
    --times;
    return true;
}
}  // namespace

FaultPlan::Fault& FaultPlan::armed(std::uint8_t code) {
    any_.store(true);
    return faults_[code];
}

void FaultPlan::refuse(std::uint8_t code, std::uint8_t status, int times) {
    std::lock_guard<std::mutex> g(lock_);
    Fault& f = armed(code);
    f.refuseTimes = times;
    f.refuseStatus = status;
}

void FaultPlan::drop(std::uint8_t code, int times) {
    std::lock_guard<std::mutex> g(lock_);
    armed(code).dropTimes = times;
}

void FaultPlan::delay(std::uint8_t code, unsigned ms, int times) {
    std::lock_guard<std::mutex> g(lock_);
    Fault& f = armed(code);
    f.delayTimes = times;
    f.delayMs = ms;
}

void FaultPlan::corruptHeaderCrc(std::uint8_t code, int times) {
    std::lock_guard<std::mutex> g(lock_);
    armed(code).corruptHeaderTimes = times;
}

void FaultPlan::corruptPayloadCrc(std::uint8_t code, int times) {
    std::lock_guard<std::mutex> g(lock_);
    armed(code).corruptPayloadTimes = times;
}

void FaultPlan::corruptReplyHeaderCrc(int times) {
    std::lock_guard<std::mutex> g(lock_);
    corruptAnyReplyTimes_ = times;
    any_.store(true);
}

void FaultPlan::splitDatagrams(std::size_t maxBytes) {
    std::lock_guard<std::mutex> g(lock_);
    splitBytes_ = maxBytes;
    any_.store(true);
}

void FaultPlan::duplicateDatagrams(bool on) {
    std::lock_guard<std::mutex> g(lock_);
    duplicate_ = on;
    any_.store(true);
}

void FaultPlan::clear() {
    std::lock_guard<std::mutex> g(lock_);
    faults_.clear();
    corruptAnyReplyTimes_ = 0;
    splitBytes_ = 0;
    duplicate_ = false;
    any_.store(false);
}

FrameFaults FaultPlan::takeFrameFaults(std::uint8_t code) {
    FrameFaults f;
    f.decided = true;
    auto it = faults_.find(code);
    if (it == faults_.end()) return f;
    f.drop = take(it->second.dropTimes);
    if (f.drop) return f;
    f.corruptHeader = take(it->second.corruptHeaderTimes);
    f.corruptPayload = take(it->second.corruptPayloadTimes);
    return f;
}

ReplyFaults FaultPlan::forReply(std::uint8_t code) {
    ReplyFaults r;
    if (!any_.load()) return r;
    std::lock_guard<std::mutex> g(lock_);
    auto it = faults_.find(code);
    if (it != faults_.end()) {
        r.refused = take(it->second.refuseTimes);
        r.refuseStatus = it->second.refuseStatus;
        if (take(it->second.delayTimes)) r.delayMs = it->second.delayMs;
    }
    r.frame = takeFrameFaults(code);
    if (!r.frame.drop && !r.frame.corruptHeader)
        r.frame.corruptHeader = take(corruptAnyReplyTimes_);
    return r;
}

SendFaults FaultPlan::forSend(std::uint8_t code, const FrameFaults& decided) {
    SendFaults s{decided.drop, decided.corruptHeader, decided.corruptPayload, 0, false};
    if (s.drop || !any_.load()) return s;
    std::lock_guard<std::mutex> g(lock_);
    if (!decided.decided) {
        const FrameFaults f = takeFrameFaults(code);
        s.drop = f.drop;
        if (s.drop) return s;
        s.corruptHeader = f.corruptHeader;
        s.corruptPayload = f.corruptPayload;
    }
    s.split = splitBytes_;
    s.twice = duplicate_;
    return s;
}

}  // namespace emu
}  // namespace kelo
