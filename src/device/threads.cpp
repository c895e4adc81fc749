#include "device/threads.h"

#include "device/protocol_table.h"

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
        int n = socket_.receive(buffer, sizeof buffer);
        if (n > 0 && running.load()) engine_.feed(buffer, static_cast<std::size_t>(n));
    }
}

void threadTFtickproc::run() {
    MarkFinished marker{finished};
    for (;;) {
        if (wakeUp.wait(50) || !running.load()) return;
        wakeUp.reset();
        engine_.tick();
    }
}

void threadKeepAliveproc::run() {
    MarkFinished marker{finished};
    for (;;) {
        if (wakeUp.wait(15000) || !running.load()) return;
        if (!engine_.sentSinceKeepAlive())
            engine_.send(kelo::kCmdKeepAlive, nullptr, 0, nullptr, 0);
        engine_.clearSentSinceKeepAlive();
    }
}
