// Which path reaches the controller, the direct UART or the sensor hub, and its power. Every operation forwards to the
// object of the path chosen at bring-up. Of what travels on the path nothing is known here: neither commands nor who
// takes the packets. Bring-up and teardown run on one thread at a time, except that the teardown of a dying process
// waits for nobody; the other operations may be called from any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "h4/h4_protocol.h"
#include "h4/hw_control/uart_baud_rate.h"
#include "h4/uart_link.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci::shim {

// Chooses the path, powers the controller and opens the path. On false what was done is undone.
bool InitializeController();
// Closes the path and powers the controller down; nobody reads or writes it any more. The path in force stays chosen.
void DeinitializeController();
// The same, and no path is in force any more. Harmless when nothing is open.
void Deinitialize();

// Put the consumers on the open path, and take the last ones away. `owner` is what the path asks of them and tells
// them.
void InitializeCallback(const Consumers& consumers, const H4Owner& owner);
void DeinitializeCallback();

// Starts reading for the consumers, keeping `receiver` alive while they are called. False if the path cannot be read.
bool StartReceiving(const std::weak_ptr<const void>& receiver);
// Puts the last consumers on the path that has been opened anew, and reads for them.
bool Reconnect(const std::weak_ptr<const void>& receiver);
// Lets senders go, what they had not written yet being discarded, and ends the receive thread (or marks it to end, when
// called on it; one whose consumer does not return for `patience` is left to end by itself). The first step of every
// teardown: whoever waits behind a sender that is stuck goes on.
void TakeLineAway(std::chrono::milliseconds patience = UartLink::kConsumerPatience);
// Waits until nobody is writing; false if somebody still is after `patience`.
bool WaitForSenders(std::chrono::milliseconds patience);

// Wakes the link and writes one packet. Returns the bytes written, type byte included, 0 without a path.
size_t Send(uint8_t type, const uint8_t* data, size_t length, bool ack_required);
// Only the sensor-hub path takes batches; the UART path logs an error and returns 0.
size_t SendBatch(const uint8_t* data, size_t length, bool ack_required);

void BaudrateChange(UartBaudRate rate);
UartBaudRate RequiredBaudRate();
bool SupportBaudRateChange();

// The driver and the wake line of the low-power mode; low_power.h says when which is due.
bool LpmSetup();
void LpmTeardown();
bool LpmSuspend();
bool LpmWakeUp();
bool IsLpmRunning();

bool IsUserialReady();
bool IsUserialAutoInit();
bool IsSerialAocUartPort();
// The serial type in force, one of conf/userial_type.h.
uint32_t GetUserialType();

// Appends the transport layer's debug dump to `fd` (the caller's): the two files on the UART path.
bool GetTlDebugDump(int fd, const std::string& first_path, const std::string& second_path);

void EnableBtUartFallback();
bool IsBtUartFallback();
bool IsBtSnoopLogModeOn();

}  // namespace android::hardware::bluetooth::hci::shim
