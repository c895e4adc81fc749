// KeLoCommLib: the device object. One instance owns one UDP link to one device, its three worker
// threads, the FlexRay and CAN receive queues, and one completion event and status byte per
// device command.
#pragma once

#include <QString>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "CommunicationLib.h"
#include "device/frame_engine.h"
#include "device/link_socket.h"
#include "device/protocol_table.h"
#include "device/receive_queues.h"
#include "platform/platform.h"

class threadUDPproc;
class threadTFtickproc;
class threadKeepAliveproc;

// Process-wide: set to 1 once any device object has made a connection.
extern std::atomic<std::uint8_t> g_keloConnectionMade;

class KeLoCommLib final : public CommunicationLib, private kelo::FrameReceiver {
  public:
    KeLoCommLib();
    ~KeLoCommLib() override;

    unsigned char OpenDevice(const char* address) override;
    unsigned char get_software_version(unsigned int* version) override;
    unsigned char Fr_Open(const char* address) override;
    unsigned char Fr_Set_Cluster_Parameter(unsigned char* cluster) override;
    unsigned char Fr_Set_Node_Parameter(const char* node) override;
    unsigned char Fr_Set_CC_Parameter(const char* cc) override;
    unsigned char SetTimeOffset(long long seconds) override;
    unsigned char Fr_SetFrPhyNodeKeySlot(const char* keyslot) override;
    unsigned char Fr_Set_Slot_Parameter(unsigned char* slot) override;
    unsigned char Fr_Set_Fifo_Parameter(unsigned char* fifo) override;
    unsigned char Fr_Configure_Node(unsigned char controller) override;
    unsigned char Fr_SendWakeUp(unsigned char controller) override;
    unsigned char Fr_Start_Node(unsigned char controller) override;
    unsigned char Fr_StartFrRxUpload(unsigned char controller) override;
    unsigned char Fr_StopFrRxUpload(unsigned char controller) override;
    unsigned char Fr_GetFrNodeState(unsigned char controller, unsigned char* state,
                                    unsigned char* sub) override;
    unsigned char Fr_GetFrPSRState(unsigned char controller, unsigned char* psr) override;
    unsigned char Fr_GetFrNWVector(unsigned char controller, unsigned char* vector,
                                   unsigned char* length) override;
    unsigned int Fr_framesAvailable() override;
    unsigned char Fr_ClearRcvBuffer(unsigned char controller) override;
    unsigned char Fr_Receive(unsigned char* record, unsigned int timeoutMs) override;
    unsigned char Fr_Transmit(unsigned char controller, unsigned char slot, unsigned char* data,
                              unsigned char words) override;
    unsigned char Fr_FillData_beforeTransmit_MultiFrame(unsigned char index, unsigned char slot,
                                                        void* data, unsigned char length) override;
    unsigned char Fr_Transmit_MultiFrame(unsigned char controller, unsigned char count,
                                         unsigned char* result, unsigned char wait) override;
    unsigned char Fr_ReplaySend(unsigned char controller, unsigned char channel, const char* data,
                                unsigned short length) override;
    unsigned char Fr_Stop(unsigned char controller) override;
    unsigned char Fr_Close() override;
    unsigned char GetDeviceInfo(unsigned char* info) override;
    unsigned char SetDeviceOption(unsigned char value) override;
    unsigned char SetDeviceText(const char* text) override;
    unsigned char FrSetDevIp(const char* address) override;
    unsigned char CAN_SetBusParameter(unsigned char kind, unsigned char channel,
                                      unsigned char* block) override;
    unsigned char CAN_SetFilterParameter(unsigned char kind, unsigned char channel,
                                         unsigned char* block) override;
    unsigned char Fr_Set_WorkMode(unsigned char kind, unsigned char controller, char mode,
                                  unsigned char flag) override;
    unsigned char ResetCPU() override;
    unsigned char Fr_WriteValue(unsigned char kind, unsigned char controller, unsigned int which,
                                int value) override;
    unsigned char Fr_ReadValue(unsigned char kind, unsigned char controller, unsigned int which,
                               unsigned int* value) override;
    unsigned char Fr_SetNodeRxTimeout(unsigned char kind, unsigned char controller,
                                      unsigned int timeout) override;
    unsigned char CAN_Start(unsigned char mode) override;
    unsigned char CAN_Stop(unsigned char mode) override;
    unsigned char CAN_Open(const char* address, unsigned char channel) override;
    unsigned char CAN_Close() override;
    unsigned char CAN_Configure(unsigned char* config) override;
    unsigned char CAN_SetNodeRxTimeout(unsigned char* config) override;
    unsigned char CAN_Transmit(unsigned char* frame, unsigned char* data) override;
    unsigned char CAN_Receive(unsigned char* record, unsigned int timeoutMs) override;
    unsigned int CAN_framesAvailable() override;
    unsigned char CAN_ClearRcvBuffer() override;
    unsigned char SetControllerMode(unsigned char kind, unsigned char controller,
                                    unsigned int word) override;
    unsigned char SetDeviceInfo(unsigned char* info) override;
    unsigned char CAN_SetOptionParameter(unsigned char kind, unsigned char channel,
                                         unsigned char* block) override;
    unsigned char Fr_WriteRegister(unsigned char kind, unsigned char controller,
                                   unsigned int word) override;
    unsigned char Fr_ReadRegister(unsigned char kind, unsigned char controller,
                                  unsigned int* word) override;

    // State read by tests and tools.
    bool linkOpen() const { return linkOpen_.load(); }
    bool busActive() const { return busActive_.load(); }
    bool uploadsActive() const { return uploadActive_.load(); }
    unsigned char canChannel() const { return canChannel_; }
    std::uint16_t devicePort() const { return link_.port; }
    // The device port is a constant of the object; tests may point it elsewhere before opening.
    void setDevicePort(std::uint16_t port) { link_.port = port; }

    // The receive path without a socket, for fuzzing and tests: attachReceivePath() creates the
    // protocol engine and registers the reply dispatcher (and sets the upload filter);
    // receiveBytes() then feeds bytes to the frame parser exactly as the receive thread does.
    void attachReceivePath(bool uploadsActive);
    void receiveBytes(const std::uint8_t* data, std::size_t length);

    // Strict link, chosen before the open (the flat interface's KELO_DEVICE_STRICT): an address
    // that is not dotted IPv4 is never sent to (every command answers 3), a reply completes only
    // the call that sent its sequence (a late or duplicated reply is dropped), and the CAN queue
    // is bounded like the FlexRay queue and takes no records while CAN is not open.
    void setStrict(bool strict) { strict_ = strict; }
    bool strict() const { return strict_; }

    // After an open that failed: stops the threads and closes the socket, which nobody will close
    // any more. The engine and the flags stay, so an operation called later still frames its
    // command and times out as before.
    void releaseAfterFailedOpen();

  private:
    static constexpr unsigned kWait = 1000;

    // Sends one command and waits for its reply: kDeviceOk, kDeviceRefused, kDeviceNoReply
    // (time-out) or kDeviceNotSent.
    unsigned char command(std::uint8_t code, const void* payload, std::uint16_t length,
                          unsigned int waitMs, bool presetStatus = true);
    unsigned char commandByte(std::uint8_t code, unsigned char value);
    bool sendFrame(std::uint8_t code, const void* payload, std::uint16_t length);
    // kDeviceOk reply arrived, kDeviceNoReply time-out, kDeviceLinkClosed the object is being
    // closed.
    unsigned char waitReply(std::uint8_t code, unsigned int waitMs);
    void disarmReply(std::uint8_t code);
    // Wakes every caller waiting in the object and returns once none is left inside, so that the
    // object can be stopped and deleted under no waiter.
    void wakeWaiters();
    struct CallScope;
    std::uint8_t status(std::uint8_t code) const { return status_[code].load(); }
    void presetStatus(std::uint8_t code) { status_[code].store(0xFF); }
    kelo::AutoResetEvent& eventFor(std::uint8_t code) { return events_[kelo::eventIndex(code)]; }

    void stopLink();
    void stopThreadsAndSocket();
    void createEngine();

    // Reply dispatcher: every frame the engine parsed (the engine's receiver).
    void onFrame(const kelo::FrameMessage& message) override;

    // 35 auto-reset completion events, one per reply code (see kelo::kEventCodes).
    kelo::AutoResetEvent events_[kelo::kEventCount];

    std::atomic<std::uint8_t> linkOpen_{0};
    std::atomic<std::uint8_t> canOpened_{0};
    std::atomic<std::uint8_t> busActive_{1};
    std::atomic<std::uint8_t> uploadActive_{0};

    // Blocking calls inside the object, and the close that wakes them (see wakeWaiters()).
    std::atomic<int> activeCalls_{0};
    std::atomic<std::uint8_t> closing_{0};

    bool strict_ = false;
    bool addressUsable_ = true;
    // Strict link: per completion event, 0x10000 | the sequence of the command that waits for its
    // reply, 0 when none does. Written under the send lock before the frame leaves.
    std::atomic<std::uint32_t> expected_[kelo::kEventCount];
    // Strict link: a reply's match, its results and its event, against a caller's event reset.
    std::mutex strictLock_;
    unsigned int softwareVersion_ = 0;

    // Results the reply dispatcher stores for the waiting caller (guarded by replyLock_).
    std::mutex replyLock_;
    std::uint32_t transmitResult_ = 0;
    std::uint8_t transmitChannel_ = 0;
    std::uint32_t transmitCounter_ = 0;
    std::uint8_t slotResult_ = 0;
    std::uint32_t registerWord_ = 0;
    std::uint8_t nodeState_ = 0;
    std::uint8_t nodeSubState_ = 0;
    std::uint8_t nodeReply_[13] = {};
    std::uint8_t nmVector_[12] = {};
    std::uint8_t nmLength_ = 0;
    std::uint8_t deviceInfo_[kelo::kDeviceInfoSize] = {};

    struct StagedFrame {
        std::uint8_t slot;
        std::uint8_t words;
        std::uint8_t data[254];
        std::uint8_t filled;
    };
    StagedFrame staging_[128] = {};

    std::unique_ptr<kelo::FrameEngine> engine_;
    threadUDPproc* rxThread_ = nullptr;
    threadTFtickproc* tickThread_ = nullptr;
    threadKeepAliveproc* keepAliveThread_ = nullptr;
    kelo::LinkSocket link_;

    QString address_;
    char address8_[64] = {};

    std::atomic<std::uint8_t> status_[256];
    unsigned char canChannel_ = 255;

    // The FlexRay and CAN receive queues, each with its lock.
    kelo::ReceiveQueues queues_;

    kelo::Lock sendLock_;
    kelo::Lock nodeStateLock_;
    kelo::Lock frTransmitLock_;
    kelo::Lock canTransmitLock_;
};
