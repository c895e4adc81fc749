#include "device/threads.h"

#include "device/KeLoCommLib.h"

namespace {
struct MarkFinished {
    FinishedFlag& flag;
    ~MarkFinished() { flag.mark(); }
};
}  // namespace

void threadUDPproc::run() {
    MarkFinished marker{finished};
    std::uint8_t buffer[1500];
    while (running.load()) {
        // Returns at least once a second (receive time-out) and at once when interrupted.
        int n = owner_->socket_.receive(buffer, sizeof buffer);
        if (n > 0 && running.load()) owner_->engine_->feed(buffer, static_cast<std::size_t>(n));
    }
}

void threadTFtickproc::run() {
    MarkFinished marker{finished};
    for (;;) {
        if (wakeUp.wait(50) || !running.load()) return;
        wakeUp.reset();
        if (owner_->engine_) owner_->engine_->tick();
    }
}

void threadKeepAliveproc::run() {
    MarkFinished marker{finished};
    for (;;) {
        if (wakeUp.wait(15000) || !running.load()) return;
        kelo::FrameEngine* engine = owner_->engine_.get();
        if (!engine) return;
        if (!engine->sentSinceKeepAlive())
            engine->send(kelo::kCmdKeepAlive, nullptr, 0, nullptr, 0);
        engine->clearSentSinceKeepAlive();
    }
}
