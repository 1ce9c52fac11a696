// Which path reaches the controller: the direct UART, or the sensor hub. Every operation forwards to the object of the
// path chosen at bring-up. Bring-up and teardown run on one thread at a time, except that CatchException may tear the
// transport down on the receive thread; the other operations may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "debug_central/bqr_error_code.h"
#include "h4/hw_control/uart_baud_rate.h"
#include "hci/hci_packet.h"

namespace android::hardware::bluetooth::hci {
class HciFlowControl;
}

namespace android::hardware::bluetooth::hci::shim {

// The serial type in force.
inline constexpr uint32_t kUserialAutoInit = 0;  // the kernel's driver initialises the controller itself
inline constexpr uint32_t kUserialApm = 1;       // direct UART path
inline constexpr uint32_t kUserialAoc = 2;       // sensor-hub path
inline constexpr uint32_t kUserialDeinitialized = 3;

// Powers the controller, opens the path and makes the process's one flow control with the five consumers (`thread_cb`
// may be empty). Returns null after undoing what was done. The pointer is the shim's; keep it as an HciHandle.
HciFlowControl* InitializeHciHandle(HciPacketCallback event_cb, HciPacketCallback acl_cb, HciPacketCallback sco_cb,
                                    HciPacketCallback iso_cb, HciPacketCallback thread_cb);

// Halts and lets go of the flow control, stops the receive thread and powers the controller down. Harmless when nothing
// is open. May be called on the receive thread.
void Deinitialize();

// The power and port half of the above. With a flow control alive (the reset recovery), InitializeController also puts
// the new descriptor under it, and what was outstanding is forgotten.
bool InitializeController();
void DeinitializeController();

// How HciFlowControl connects itself to the path; not for others.
void InitializeCallback(HciPacketCallback event_cb, HciPacketCallback acl_cb, HciPacketCallback sco_cb,
                        HciPacketCallback iso_cb, HciPacketCallback thread_cb);
void DeinitializeCallback();

// Returns the bytes written, type byte included, 0 without a path.
size_t Send(uint8_t type, const uint8_t* data, size_t length, bool ack_required);
// Only the sensor-hub path takes batches; the UART path logs an error and returns 0.
size_t SendBatch(const uint8_t* data, size_t length, bool ack_required);

void BaudrateChange(UartBaudRate rate);
UartBaudRate RequiredBaudRate();
bool SupportBaudRateChange();

bool LpmSetup();
void LpmTeardown();
bool LpmSuspend();
bool LpmWakeUp();
bool IsLpmRunning();

bool IsUserialReady();
bool IsUserialAutoInit();
bool IsInitialized();
bool IsSerialAocUartPort();
uint32_t GetUserialType();

// Appends the transport layer's debug dump to `fd` (the caller's): the two files on the UART path.
bool GetTlDebugDump(int fd, const std::string& first_path, const std::string& second_path);

// The transport failed beyond repair: shuts the vendor protocol down, reports the error, tears the transport down. What
// the calling receive thread stands on stays alive until its callback returns.
void CatchException(V1_1::qnlbtlinux::debug::BqrErrorCode code, const std::string& info);

void EnableBtUartFallback();
bool IsBtUartFallback();
bool IsBtSnoopLogModeOn();

}  // namespace android::hardware::bluetooth::hci::shim
