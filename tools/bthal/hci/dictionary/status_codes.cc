#include "bthal/hci/dictionary/tables.h"

// Statuses are what the controller says; error kinds are how this system's service, or its controller's firmware, came
// to its end. The service's own words for the latter stand in crash reports; they are repeated letter by letter.
const char bthal::tool::kStatusCodes[] = R"(
status x8!!: 0x00 success, 0x01 unknown HCI command, 0x02 unknown connection identifier, 0x03 hardware failure,
  0x04 page timeout, 0x05 authentication failure, 0x06 PIN or key missing, 0x07 memory capacity exceeded,
  0x08 connection timeout, 0x09 connection limit exceeded, 0x0A synchronous connection limit to a device exceeded,
  0x0B connection already exists, 0x0C command disallowed, 0x0D connection rejected due to limited resources,
  0x0E connection rejected due to security reasons, 0x0F connection rejected due to unacceptable BD_ADDR,
  0x10 connection accept timeout exceeded, 0x11 unsupported feature or parameter value,
  0x12 invalid HCI command parameters, 0x13 remote user terminated connection,
  0x14 remote device terminated connection due to low resources,
  0x15 remote device terminated connection due to power off, 0x16 connection terminated by local host,
  0x17 repeated attempts, 0x18 pairing not allowed, 0x19 unknown LMP PDU, 0x1A unsupported remote feature,
  0x1B SCO offset rejected, 0x1C SCO interval rejected, 0x1D SCO air mode rejected, 0x1E invalid LMP/LL parameters,
  0x1F unspecified error, 0x20 unsupported LMP/LL parameter value, 0x21 role change not allowed,
  0x22 LMP/LL response timeout, 0x23 LMP error transaction collision/LL procedure collision,
  0x24 LMP PDU not allowed, 0x25 encryption mode not acceptable, 0x26 link key cannot be changed,
  0x27 requested QoS not supported, 0x28 instant passed, 0x29 pairing with unit key not supported,
  0x2A different transaction collision, 0x2C QoS unacceptable parameter, 0x2D QoS rejected,
  0x2E channel classification not supported, 0x2F insufficient security, 0x30 parameter out of mandatory range,
  0x32 role switch pending, 0x34 reserved slot violation, 0x35 role switch failed,
  0x36 extended inquiry response too large, 0x37 secure simple pairing not supported by host, 0x38 host busy - pairing,
  0x39 connection rejected due to no suitable channel found, 0x3A controller busy,
  0x3B unacceptable connection parameters, 0x3C advertising timeout, 0x3D connection terminated due to MIC failure,
  0x3E connection failed to be established/synchronization timeout, 0x3F MAC connection failed,
  0x40 coarse clock adjustment rejected, 0x41 type0 submap not defined, 0x42 unknown advertising identifier,
  0x43 limit reached, 0x44 operation cancelled by host, 0x45 packet too long, 0x46 too late, 0x47 too early,
  0x48 insufficient channels
reason status
command_status status: 0x00 accepted

error_kind x8!!: 0x01 UART Parsing error, 0x02 UART Incomplete Packet, 0x03 Patch Firmware checksum failure,
  0x10 Firmware Crash due to Hard Fault, 0x11 Firmware Crash due to Mem manage Fault,
  0x12 Firmware Crash due to Bus Fault, 0x13 Firmware Crash due to Usage fault,
  0x14 Firmware Crash due to Watchdog timeout, 0x15 Firmware Crash due to Assertion failure,
  0x16 Firmware Crash Miscallaneuous, 0x20 Firmware Miscellaneous error - Major,
  0x21 Firmware Miscellaneous error - Critical, 0x7F Soc Big Hammer Error,
  0x80 Host RX Thread Stuck, 0x81 Host HCI Command Timeout, 0x82 Invalid / un-reassembled HCI event,
  0x83 Host Received Unimplemented Packet Type, 0x84 Host HCI H4 TX Error, 0x90 Host Open Userial Error,
  0x91 Host Can't Power Up Controller, 0x92 Host Change Baudrate Error, 0x93 Host HCI Reset Error Before FW Download,
  0x94 Host Firmware Download Error, 0x95 Host HCI Reset Error After FW Download,
  0x96 Host Can't fetch the provisioning BDA, 0x97 HostCoexDeviceOpenError, 0x98 Host Accelerated Init Failed,
  0x99 Host Accelerated ShutDown Failed, 0xC0 Usf Transport Prepare Failed, 0xC1 Usf Unknown Error,
  0xC2 Usf Operation Failed, 0xC3 Usf Value Is Too Big Error, 0xC4 Usf System Service Error, 0xC5 Usf Buffer Error,
  0xC6 Usf Memoy Allocation Error, 0xC7 Usf Not Found Error, 0xC8 Usf Not Supported Error, 0xC9 Usf Bad Value Error,
  0xCA Usf Operation Was Canceled, 0xCB Usf Service Not Available Error, 0xCC Usf Not Ready to Perform operation,
  0xCD Usf Allocation Error, 0xCE Usf IO Error, 0xCF Usf Invalid Value Or Operation, 0xD0 Usf Operation Timed Out,
  0xD1 Usf Container Full Error, 0xD2 Usf Value Is Too Small Error, 0xD3 Usf Item Already Exists Error,
  0xD4 Usf Value Out Of Range Error, 0xD5 Usf Unimplemented Packet Type Error, 0xD6 Handle Usf Connection Event Error,
  0xE0 Arbitrator Detected Unimaplemented Packet Type Error, 0xE1 Arbitrator Detected Invalid Packet Size
)";
