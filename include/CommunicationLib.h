// CommunicationLib: the object interface of one KeLoComm bus-interface device (FlexRay
// communication controllers and CAN channels reached over UDP/IPv4).
//
// Every operation that sends a command blocks until the device answers or the wait runs out and
// returns a status byte: 0 accepted, 1 the device refused (non-zero status), 2 no reply in time,
// 3 the frame could not be sent, 4 link not open (receive operations); some operations add
// codes of their own (see docs/api.md). Bus kind arguments: 1 = FlexRay, 2 = CAN.
//
// The order of the virtual operations is part of the binary interface and must not change.
#pragma once

#include <QObject>

#include "kelocomm_export.h"

class KELOCOMM_API CommunicationLib : public QObject {
  public:
    CommunicationLib();
    ~CommunicationLib() override;

    // Link
    virtual unsigned char OpenDevice(const char* address) = 0;
    virtual unsigned char get_software_version(unsigned int* version) = 0;
    virtual unsigned char Fr_Open(const char* address) = 0;

    // FlexRay configuration
    virtual unsigned char Fr_Set_Cluster_Parameter(unsigned char* cluster) = 0;
    virtual unsigned char Fr_Set_Node_Parameter(const char* node) = 0;
    virtual unsigned char Fr_Set_CC_Parameter(const char* cc) = 0;
    virtual unsigned char SetTimeOffset(long long seconds) = 0;
    virtual unsigned char Fr_SetFrPhyNodeKeySlot(const char* keyslot) = 0;
    virtual unsigned char Fr_Set_Slot_Parameter(unsigned char* slot) = 0;
    virtual unsigned char Fr_Set_Fifo_Parameter(unsigned char* fifo) = 0;
    virtual unsigned char Fr_Configure_Node(unsigned char controller) = 0;
    virtual unsigned char Fr_SendWakeUp(unsigned char controller) = 0;
    virtual unsigned char Fr_Start_Node(unsigned char controller) = 0;
    virtual unsigned char Fr_StartFrRxUpload(unsigned char controller) = 0;
    virtual unsigned char Fr_StopFrRxUpload(unsigned char controller) = 0;
    virtual unsigned char Fr_GetFrNodeState(unsigned char controller, unsigned char* state,
                                            unsigned char* sub) = 0;
    virtual unsigned char Fr_GetFrPSRState(unsigned char controller, unsigned char* psr) = 0;
    virtual unsigned char Fr_GetFrNWVector(unsigned char controller, unsigned char* vector,
                                           unsigned char* length) = 0;

    // FlexRay traffic
    virtual unsigned int Fr_framesAvailable() = 0;
    virtual unsigned char Fr_ClearRcvBuffer(unsigned char controller) = 0;
    virtual unsigned char Fr_Receive(unsigned char* record, unsigned int timeoutMs) = 0;
    virtual unsigned char Fr_Transmit(unsigned char controller, unsigned char slot,
                                      unsigned char* data, unsigned char words) = 0;
    virtual unsigned char Fr_FillData_beforeTransmit_MultiFrame(unsigned char index,
                                                                unsigned char slot, void* data,
                                                                unsigned char length) = 0;
    virtual unsigned char Fr_Transmit_MultiFrame(unsigned char controller, unsigned char count,
                                                 unsigned char* result, unsigned char wait) = 0;
    virtual unsigned char Fr_ReplaySend(unsigned char controller, unsigned char channel,
                                        const char* data, unsigned short length) = 0;
    virtual unsigned char Fr_Stop(unsigned char controller) = 0;
    virtual unsigned char Fr_Close() = 0;

    // Device management
    virtual unsigned char GetDeviceInfo(unsigned char* info) = 0;
    virtual unsigned char SetDeviceOption(unsigned char value) = 0;
    virtual unsigned char SetDeviceText(const char* text) = 0;
    virtual unsigned char FrSetDevIp(const char* address) = 0;

    // CAN parameters and shared controller operations
    virtual unsigned char CAN_SetBusParameter(unsigned char kind, unsigned char channel,
                                              unsigned char* block) = 0;
    virtual unsigned char CAN_SetFilterParameter(unsigned char kind, unsigned char channel,
                                                 unsigned char* block) = 0;
    virtual unsigned char Fr_Set_WorkMode(unsigned char kind, unsigned char controller, char mode,
                                          unsigned char flag) = 0;
    virtual unsigned char ResetCPU() = 0;
    virtual unsigned char Fr_WriteValue(unsigned char kind, unsigned char controller,
                                        unsigned int which, int value) = 0;
    virtual unsigned char Fr_ReadValue(unsigned char kind, unsigned char controller,
                                       unsigned int which, unsigned int* value) = 0;
    virtual unsigned char Fr_SetNodeRxTimeout(unsigned char kind, unsigned char controller,
                                              unsigned int timeout) = 0;

    // CAN
    virtual unsigned char CAN_Start(unsigned char mode) = 0;
    virtual unsigned char CAN_Stop(unsigned char mode) = 0;
    virtual unsigned char CAN_Open(const char* address, unsigned char channel) = 0;
    virtual unsigned char CAN_Close() = 0;
    virtual unsigned char CAN_Configure(unsigned char* config) = 0;
    virtual unsigned char CAN_SetNodeRxTimeout(unsigned char* config) = 0;
    virtual unsigned char CAN_Transmit(unsigned char* frame, unsigned char* data) = 0;
    virtual unsigned char CAN_Receive(unsigned char* record, unsigned int timeoutMs) = 0;
    virtual unsigned int CAN_framesAvailable() = 0;
    virtual unsigned char CAN_ClearRcvBuffer() = 0;

    // Controller registers and raw device records
    virtual unsigned char SetControllerMode(unsigned char kind, unsigned char controller,
                                            unsigned int word) = 0;
    virtual unsigned char SetDeviceInfo(unsigned char* info) = 0;
    virtual unsigned char CAN_SetOptionParameter(unsigned char kind, unsigned char channel,
                                                 unsigned char* block) = 0;
    virtual unsigned char Fr_WriteRegister(unsigned char kind, unsigned char controller,
                                           unsigned int word) = 0;
    virtual unsigned char Fr_ReadRegister(unsigned char kind, unsigned char controller,
                                          unsigned int* word) = 0;

  private:
    Q_DISABLE_COPY(CommunicationLib)
};

// Creates a new, unopened device object; the caller owns it and deletes it after closing it
// (Fr_Close or CAN_Close).
extern "C" KELOCOMM_API CommunicationLib* GetKeLoComm();
