#include "bthal/hci/dictionary/tables.h"

const char bthal::tool::kBaseband[] = R"(
0x0C01 Set Event Mask > event_mask:x64=0x3FFFFFFFFFFFFFFF
0x0C03 Reset
0x0C05 Set Event Filter > filter_type=clear_all!! condition:hex@?
0x0C08 Flush > connection_handle < connection_handle
0x0C09 Read PIN Type < pin_type!!
0x0C0A Write PIN Type > pin_type!!
0x0C0B Create New Unit Key
0x0C0D Read Stored Link Key
  > bd_addr=00:00:00:00:00:00 read_all:on_off=on < max_num_keys:u16! num_keys_read:u16!
0x0C11 Write Stored Link Key
  > num_keys_to_write:u8(1..11) keys@num_keys_to_write{ bd_addr link_key:hex16 } < num_keys_written:u8!
0x0C12 Delete Stored Link Key > bd_addr=00:00:00:00:00:00 delete_all:on_off=on < num_keys_deleted:u16!
0x0C13 Write Local Name > local_name:text248!!
0x0C14 Read Local Name < local_name:text248!!
0x0C15 Read Connection Accept Timeout < timeout:u16*0.625ms!!
0x0C16 Write Connection Accept Timeout > timeout:u16(1..0xB540)*0.625ms!!
0x0C17 Read Page Timeout < timeout:u16*0.625ms!!
0x0C18 Write Page Timeout > timeout:u16(1..0xFFFF)*0.625ms!!
0x0C19 Read Scan Enable < scan_enable!!
0x0C1A Write Scan Enable > scan_enable=inquiry_and_page!!
0x0C1B Read Page Scan Activity < interval:u16*0.625ms! window:u16*0.625ms!
0x0C1C Write Page Scan Activity > interval:u16(0x12..0x1000)*0.625ms! window:u16(0x11..0x1000)*0.625ms!
0x0C1D Read Inquiry Scan Activity < interval:u16*0.625ms! window:u16*0.625ms!
0x0C1E Write Inquiry Scan Activity > interval:u16(0x12..0x1000)*0.625ms! window:u16(0x11..0x1000)*0.625ms!
0x0C1F Read Authentication Enable < enable:on_off!!
0x0C20 Write Authentication Enable > enable:on_off!!
0x0C21 Read Encryption Mode < mode:on_off!!
0x0C22 Write Encryption Mode > mode:on_off!!
0x0C23 Read Class Of Device < class_of_device!!
0x0C24 Write Class Of Device > class_of_device!!
0x0C25 Read Voice Setting < voice_setting!
0x0C26 Write Voice Setting > voice_setting!
0x0C27 Read Automatic Flush Timeout > connection_handle < connection_handle timeout:u16*0.625ms!!
0x0C28 Write Automatic Flush Timeout > connection_handle timeout:u16(0..0x07FF)*0.625ms!! < connection_handle
0x0C29 Read Num Broadcast Retransmissions < num_retransmissions:u8!
0x0C2A Write Num Broadcast Retransmissions > num_retransmissions:u8(0..0xFE)!
0x0C2B Read Hold Mode Activity < hold_mode_activity!
0x0C2C Write Hold Mode Activity > hold_mode_activity!
0x0C2D Read Transmit Power Level > connection_handle type:power_level=current < connection_handle level:i8*dBm!!
0x0C2E Read Synchronous Flow Control Enable < enable:on_off!!
0x0C2F Write Synchronous Flow Control Enable > enable:on_off!!
0x0C31 Set Controller To Host Flow Control > host_flow_control!!
0x0C33 Host Buffer Size
  > acl_data_packet_length:u16! synchronous_data_packet_length:u8 total_num_acl_data_packets:u16!
    total_num_synchronous_data_packets:u16
0x0C35 Host Number Of Completed Packets
  > num_handles:u8 completed@num_handles{ connection_handle num_packets:u16! }
0x0C36 Read Link Supervision Timeout > connection_handle < connection_handle timeout:u16*0.625ms!!
0x0C37 Write Link Supervision Timeout > connection_handle timeout:u16*0.625ms!! < connection_handle
0x0C38 Read Number Of Supported IAC < num_support_iac:u8!
0x0C39 Read Current IAC LAP < num_current_iac:u8 iacs@num_current_iac{ lap! }
0x0C3A Write Current IAC LAP > num_current_iac:u8(1..0x40) iacs@num_current_iac{ lap! }
0x0C3B Read Page Scan Period Mode < mode:u8!
0x0C3C Write Page Scan Period Mode > mode:u8(0..2)!
0x0C3D Read Page Scan Mode < mode:u8!
0x0C3E Write Page Scan Mode > mode:u8!
0x0C3F Set AFH Host Channel Classification (set_afh) > afh_host_channel_classification:channel_map
0x0C42 Read Inquiry Scan Type < scan_type!!
0x0C43 Write Inquiry Scan Type > scan_type!!
0x0C44 Read Inquiry Mode < inquiry_mode!!
0x0C45 Write Inquiry Mode > inquiry_mode!!
0x0C46 Read Page Scan Type < scan_type!!
0x0C47 Write Page Scan Type > scan_type!!
0x0C48 Read AFH Channel Assessment Mode < mode:on_off!!
0x0C49 Write AFH Channel Assessment Mode > mode:on_off!!
0x0C51 Read Extended Inquiry Response < fec_required:on_off extended_inquiry_response:ad240!!
0x0C52 Write Extended Inquiry Response > fec_required:on_off=off extended_inquiry_response:ad240!!
0x0C53 Refresh Encryption Key > connection_handle ~ Encryption Key Refresh Complete
0x0C55 Read Simple Pairing Mode < mode:on_off!!
0x0C56 Write Simple Pairing Mode > mode:on_off=on!!
0x0C57 Read Local OOB Data < c:hex16 r:hex16
0x0C58 Read Inquiry Response Transmit Power Level < tx_power:i8*dBm!!
0x0C59 Write Inquiry Transmit Power Level > tx_power:i8(-70..20)*dBm!!
0x0C5A Read Default Erroneous Data Reporting < enable:on_off!!
0x0C5B Write Default Erroneous Data Reporting > enable:on_off!!
0x0C5F Enhanced Flush > connection_handle packet_type:u8=0 ~ Enhanced Flush Complete
0x0C60 Send Keypress Notification > bd_addr keypress!! < bd_addr
0x0C61 Read Logical Link Accept Timeout < timeout:u16*0.625ms!!
0x0C62 Write Logical Link Accept Timeout > timeout:u16(1..0xB540)*0.625ms!!
0x0C63 Set Event Mask Page 2 > event_mask:x64
0x0C64 Read Location Data
  < location_domain_aware:on_off location_domain:x16 location_domain_options:x8 location_options:x8
0x0C65 Write Location Data
  > location_domain_aware:on_off location_domain:x16 location_domain_options:x8 location_options:x8
0x0C66 Read Flow Control Mode < mode:u8!
0x0C67 Write Flow Control Mode > mode:u8(0..1)!
0x0C68 Read Enhanced Transmit Power Level
  > connection_handle type:power_level=current < connection_handle gfsk:i8*dBm! dqpsk:i8*dBm! 8dpsk:i8*dBm!
0x0C69 Read Best Effort Flush Timeout > logical_link_handle:x16! < timeout:u32*us!!
0x0C6A Write Best Effort Flush Timeout > logical_link_handle:x16! timeout:u32*us!!
0x0C6B Short Range Mode > physical_link_handle:u8! mode:on_off!! ~ Short Range Mode Change Complete
0x0C6C Read LE Host Support < le_supported_host:on_off!! unused:u8
0x0C6D Write LE Host Support > le_supported_host:on_off=on!! unused:u8=0
0x0C6E Set MWS Channel Parameters
  > enable:on_off=on!! rx_center_frequency:u16*MHz tx_center_frequency:u16*MHz rx_channel_bandwidth:u16*kHz
    tx_channel_bandwidth:u16*kHz channel_type:u8
0x0C6F Set External Frame Configuration
  > frame_duration:u16*us frame_sync_assert_offset:i16*us frame_sync_assert_jitter:u16*us num_periods:u8(1..32)
    periods@num_periods{ duration:u16*us type:u8 }
0x0C70 Set MWS Signaling
  > rx_assert_offset:i16*us=0 rx_assert_jitter:u16*us=0 rx_deassert_offset:i16*us=0 rx_deassert_jitter:u16*us=0
    tx_assert_offset:i16*us=0 tx_assert_jitter:u16*us=0 tx_deassert_offset:i16*us=0 tx_deassert_jitter:u16*us=0
    pattern_assert_offset:i16*us=0 pattern_assert_jitter:u16*us=0 inactivity_duration_assert_offset:i16*us=0
    inactivity_duration_assert_jitter:u16*us=0 scan_frequency_assert_offset:i16*us=0
    scan_frequency_assert_jitter:u16*us=0 priority_assert_offset_request:u16*us=0
  < bluetooth_rx_priority_assert_offset:i16*us bluetooth_rx_priority_assert_jitter:u16*us
    bluetooth_rx_priority_deassert_offset:i16*us bluetooth_rx_priority_deassert_jitter:u16*us
    802_rx_priority_assert_offset:i16*us 802_rx_priority_assert_jitter:u16*us
    802_rx_priority_deassert_offset:i16*us 802_rx_priority_deassert_jitter:u16*us
    bluetooth_tx_on_assert_offset:i16*us bluetooth_tx_on_assert_jitter:u16*us
    bluetooth_tx_on_deassert_offset:i16*us bluetooth_tx_on_deassert_jitter:u16*us
    802_tx_on_assert_offset:i16*us 802_tx_on_assert_jitter:u16*us 802_tx_on_deassert_offset:i16*us
    802_tx_on_deassert_jitter:u16*us
0x0C71 Set MWS Transport Layer > transport_layer:u8 to_mws_baud_rate:u32*bit/s from_mws_baud_rate:u32*bit/s
0x0C72 Set MWS Scan Frequency Table
  > num_scan_frequencies:u8 frequencies@num_scan_frequencies{ low:u16*MHz high:u16*MHz }
0x0C73 Set MWS Pattern Configuration
  > pattern_index:u8(0..2)! num_intervals:u8 intervals@num_intervals{ duration:u16*us type:u8(0..4) }
0x0C74 Set Reserved LT_ADDR > lt_addr:u8(1..7)! < lt_addr:u8!
0x0C75 Delete Reserved LT_ADDR > lt_addr:u8(1..7)! < lt_addr:u8!
0x0C76 Set Connectionless Peripheral Broadcast Data
  > lt_addr:u8(1..7)! fragment:u8(0..3)=3 data_length:u8 data:hex@data_length < lt_addr:u8!
0x0C77 Read Synchronization Train Parameters
  < interval:u16*0.625ms! synchronization_train_timeout:u32*0.625ms! service_data:x8
0x0C78 Write Synchronization Train Parameters
  > interval_min:u16(0x20..0xFFFE)*0.625ms interval_max:u16(0x20..0xFFFE)*0.625ms
    synchronization_train_timeout:u32(2..0x07FFFFFE)*0.625ms service_data:x8=0 < interval:u16*0.625ms!
0x0C79 Read Secure Connections Host Support < support:on_off!!
0x0C7A Write Secure Connections Host Support > support:on_off=on!!
0x0C7B Read Authenticated Payload Timeout > connection_handle < connection_handle timeout:u16*10ms!!
0x0C7C Write Authenticated Payload Timeout > connection_handle timeout:u16(1..0xFFFF)*10ms!! < connection_handle
0x0C7D Read Local OOB Extended Data < c_192:hex16 r_192:hex16 c_256:hex16 r_256:hex16
0x0C7E Read Extended Page Timeout < timeout:u16*0.625ms!!
0x0C7F Write Extended Page Timeout > timeout:u16*0.625ms!!
0x0C80 Read Extended Inquiry Length < length:u16*0.625ms!!
0x0C81 Write Extended Inquiry Length > length:u16*0.625ms!!
0x0C82 Set Ecosystem Base Interval > interval:u16*1.25ms!!
0x0C83 Configure Data Path
  > direction:data_path_direction!! data_path_id:data_path! vendor_specific_config_length:u8
    vendor_specific_config:hex@vendor_specific_config_length
0x0C84 Set Min Encryption Key Size > size:u8(7..16)!
)";
