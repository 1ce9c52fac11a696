#include "bthal/hci/dictionary/tables.h"

const char bthal::tool::kEvents[] = R"(
0x01 Inquiry Complete > status
0x02 Inquiry Result
  > num_responses:u8
    responses@num_responses{ bd_addr page_scan_repetition_mode reserved:x16 class_of_device! clock_offset }
0x03 Connection Complete > status connection_handle bd_addr link_type encryption_enabled:on_off
0x04 Connection Request > bd_addr class_of_device! link_type
0x05 Disconnection Complete > status connection_handle reason
0x06 Authentication Complete > status connection_handle
0x07 Remote Name Request Complete > status bd_addr remote_name:text248!!
0x08 Encryption Change > status connection_handle encryption_enabled!!
0x09 Change Connection Link Key Complete > status connection_handle
0x0A Link Key Type Changed > status connection_handle key_flag!!
0x0B Read Remote Supported Features Complete > status connection_handle lmp_features
0x0C Read Remote Version Information Complete
  > status connection_handle version! company_identifier:company! subversion:x16!
0x0D QoS Setup Complete
  > status connection_handle unused:u8 service_type token_rate:u32 peak_bandwidth:u32 latency:u32*us
    delay_variation:u32*us
0x0E Command Complete > num_hci_command_packets:u8 command_opcode:opcode
0x0F Command Status > status:command_status num_hci_command_packets:u8 command_opcode:opcode
0x10 Hardware Error > hardware_code:x8!
0x11 Flush Occurred > connection_handle
0x12 Role Change > status bd_addr new_role:role
0x13 Number Of Completed Packets > num_handles:u8 completed@num_handles{ connection_handle num_packets:u16! }
0x14 Mode Change > status connection_handle current_mode:mode interval:u16*0.625ms
0x15 Return Link Keys > num_keys:u8! keys@num_keys{ bd_addr link_key:hex16 }
0x16 PIN Code Request > bd_addr
0x17 Link Key Request > bd_addr
0x18 Link Key Notification > bd_addr link_key:hex16 key_type:link_key_type!!
0x19 Loopback Command > command_opcode:opcode parameter_length:u8 parameters:hex@
0x1A Data Buffer Overflow > link_type
0x1B Max Slots Change > connection_handle lmp_max_slots:u8!
0x1C Read Clock Offset Complete > status connection_handle clock_offset!
0x1D Connection Packet Type Changed > status connection_handle packet_type:acl_packet_type!
0x1E QoS Violation > connection_handle
0x1F Page Scan Mode Change > bd_addr page_scan_mode:u8!
0x20 Page Scan Repetition Mode Change > bd_addr page_scan_repetition_mode!!
0x21 Flow Specification Complete
  > status connection_handle unused:u8 flow_direction service_type token_rate:u32 token_bucket_size:u32
    peak_bandwidth:u32 access_latency:u32*us
0x22 Inquiry Result With RSSI
  > num_responses:u8
    responses@num_responses{ bd_addr page_scan_repetition_mode reserved:x8 class_of_device! clock_offset rssi }
0x23 Read Remote Extended Features Complete
  > status connection_handle page_number:u8! max_page_number:u8! features:x64!
0x2C Synchronous Connection Complete
  > status connection_handle bd_addr link_type transmission_interval:u8*0.625ms retransmission_window:u8*0.625ms
    rx_packet_length:u16 tx_packet_length:u16 air_mode!!
0x2D Synchronous Connection Changed
  > status connection_handle transmission_interval:u8*0.625ms retransmission_window:u8*0.625ms rx_packet_length:u16
    tx_packet_length:u16
0x2E Sniff Subrating
  > status connection_handle max_tx_latency:u16*0.625ms max_rx_latency:u16*0.625ms min_remote_timeout:u16*0.625ms
    min_local_timeout:u16*0.625ms
0x2F Extended Inquiry Result
  > num_responses:u8 bd_addr page_scan_repetition_mode reserved:x8 class_of_device! clock_offset rssi
    extended_inquiry_response:ad240!!
0x30 Encryption Key Refresh Complete > status connection_handle
0x31 IO Capability Request > bd_addr
0x32 IO Capability Response > bd_addr io_capability!! oob_data_present authentication_requirements
0x33 User Confirmation Request > bd_addr numeric_value:u32!
0x34 User Passkey Request > bd_addr
0x35 Remote OOB Data Request > bd_addr
0x36 Simple Pairing Complete > status bd_addr
0x38 Link Supervision Timeout Changed > connection_handle timeout:u16*0.625ms!!
0x39 Enhanced Flush Complete > connection_handle
0x3B User Passkey Notification > bd_addr passkey:u32!
0x3C Keypress Notification > bd_addr keypress!!
0x3D Remote Host Supported Features Notification > bd_addr features:x64!
0x3E LE Meta > subevent:x8! parameters:hex@
0x40 Physical Link Complete > status physical_link_handle:u8!
0x41 Channel Selected > physical_link_handle:u8!
0x42 Disconnection Physical Link Complete > status physical_link_handle:u8! reason
0x43 Physical Link Loss Early Warning > physical_link_handle:u8! link_loss_reason:u8!
0x44 Physical Link Recovery > physical_link_handle:u8!
0x45 Logical Link Complete > status logical_link_handle:x16! physical_link_handle:u8! tx_flow_spec_id:u8
0x46 Disconnection Logical Link Complete > status logical_link_handle:x16! reason
0x47 Flow Spec Modify Complete > status connection_handle
0x48 Number Of Completed Data Blocks
  > total_num_data_blocks:u16! num_handles:u8 completed@num_handles{ connection_handle num_packets:u16!
    num_blocks:u16! }
0x49 AMP Start Test > status test_scenario:u8!
0x4A AMP Test End > status test_scenario:u8!
0x4B AMP Receiver Report
  > controller_type:u8! reason:u8! event_type:x32 number_of_frames:u16 number_of_error_frames:u16! number_of_bits:u32
    number_of_error_bits:u32!
0x4C Short Range Mode Change Complete > status physical_link_handle:u8! state:on_off!!
0x4D AMP Status Change > status amp_status:u8!
0x4E Triggered Clock Capture > connection_handle which_clock clock:x32! slot_offset:u16*us!
0x4F Synchronization Train Complete > status
0x50 Synchronization Train Received
  > status bd_addr clock_offset:x32 afh_channel_map:channel_map lt_addr:u8! next_broadcast_instant:x32
    interval:u16*0.625ms service_data:x8
0x51 Connectionless Peripheral Broadcast Receive
  > bd_addr lt_addr:u8! clock:x32 offset:x32 rx_status:u8! fragment:u8 data_length:u8 data:hex@data_length
0x52 Connectionless Peripheral Broadcast Timeout > bd_addr lt_addr:u8!
0x53 Truncated Page Complete > status bd_addr
0x54 Peripheral Page Response Timeout
0x55 Connectionless Peripheral Broadcast Channel Map Change > channel_map
0x56 Inquiry Response Notification > lap! rssi
0x57 Authenticated Payload Timeout Expired > connection_handle
0x58 SAM Status Change
  > connection_handle local_sam_index:u8 local_sam_tx_availability:u8 local_sam_rx_availability:u8 remote_sam_index:u8
    remote_sam_tx_availability:u8 remote_sam_rx_availability:u8
0x59 Encryption Change [v2] > status connection_handle encryption_enabled!! encryption_key_size:u8!
0xFF Vendor Event > subevent:x8! parameters:hex@
)";

// The quality reports that are spoken of in this system are those by which it ends, and those that carry memory.
const char bthal::tool::kVendorEvents[] = R"(
0xFF/0x57 Debug Information > report:u8 reserved:u8 last:on_off index:u16! data:hex@!!
0xFF/0x58 Quality Report > quality_report!! report:hex@
0xFF/0x58/0x05 Quality Report: Root Inflammation > error_code:x8! vendor_error_code:error_kind rest:hex@?
0xFF/0x58/0x13 Quality Report: Controller Memory > reserved:u8 last:on_off data:hex@!!
0xFF/0x58/0x14 Quality Report: Sensor-Hub Memory > reserved:u8 last:on_off data:hex@!!
)";
