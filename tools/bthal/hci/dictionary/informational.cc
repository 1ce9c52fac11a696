#include "bthal/hci/dictionary/tables.h"

// What the controller is, how its links fare, and its tests.
const char bthal::tool::kInformational[] = R"(
0x1001 Read Local Version Information (read_local_version)
  < hci_version:version! hci_subversion:x16! lmp_version:version company_identifier:company! lmp_subversion:x16!
0x1002 Read Local Supported Commands (read_local_commands) < supported_commands:hex64
0x1003 Read Local Supported Features (read_local_features) < features:lmp_features
0x1004 Read Local Extended Features > page_number:u8=0! < page_number:u8! max_page_number:u8! features:x64!
0x1005 Read Buffer Size
  < acl_data_packet_length:u16! synchronous_data_packet_length:u8! total_num_acl_data_packets:u16!
    total_num_synchronous_data_packets:u16!
0x1007 Read Country Code < country_code:u8!
0x1009 Read BD_ADDR < bd_addr
0x100A Read Data Block Size < max_acl_data_packet_length:u16! data_block_length:u16! total_num_data_blocks:u16!
0x100B Read Local Supported Codecs
  < num_codecs:u8! codecs@num_codecs{ codec:coding_format!! } num_vendor_codecs:u8!
    vendor_codecs@num_vendor_codecs{ company! codec:x16! }
0x100C Read Local Simple Pairing Options < options:x8! max_encryption_key_size:u8!
0x100D Read Local Supported Codecs [v2]
  < num_codecs:u8! codecs@num_codecs{ codec:coding_format!! transports:codec_transports } num_vendor_codecs:u8!
    vendor_codecs@num_vendor_codecs{ company! codec:x16! transports:codec_transports }
0x100E Read Local Supported Codec Capabilities
  > coding_format!! company=0 vendor_codec:x16=0 transport:codec_transport direction:data_path_direction
  < num_capabilities:u8! capabilities@num_capabilities{ length:u8 capability:hex@length }
0x100F Read Local Supported Controller Delay
  > coding_format!! company=0 vendor_codec:x16=0 transport:codec_transport direction:data_path_direction
    codec_configuration_length:u8 codec_configuration:hex@codec_configuration_length
  < min_controller_delay:u24*us! max_controller_delay:u24*us!

0x1401 Read Failed Contact Counter > connection_handle < connection_handle failed_contact_counter:u16!
0x1402 Reset Failed Contact Counter > connection_handle < connection_handle
0x1403 Read Link Quality > connection_handle < connection_handle link_quality:u8!
0x1405 Read RSSI > connection_handle < connection_handle rssi:i8*dB!!
0x1406 Read AFH Channel Map > connection_handle < connection_handle mode:on_off! afh_channel_map:channel_map
0x1407 Read Clock > connection_handle=0 which_clock=local < connection_handle clock:x32! accuracy:u16*0.3125ms!
0x1408 Read Encryption Key Size > connection_handle < connection_handle key_size:u8!
0x1409 Read Local AMP Info
  < amp_status:u8! total_bandwidth:u32 max_guaranteed_bandwidth:u32 min_latency:u32*us max_pdu_size:u32
    controller_type:u8! pal_capabilities:x16 max_amp_assoc_length:u16 max_flush_timeout:u32*us
    best_effort_flush_timeout:u32*us
0x140A Read Local AMP Assoc
  > physical_link_handle:u8! length_so_far:u16! max_remote_amp_assoc_length:u16
  < physical_link_handle:u8! amp_assoc_remaining_length:u16! amp_assoc_fragment:hex@
0x140B Write Remote AMP Assoc
  > physical_link_handle:u8! length_so_far:u16! amp_assoc_remaining_length:u16! amp_assoc_fragment:hex@
  < physical_link_handle:u8!
0x140C Get MWS Transport Layer Configuration
  < num_transports:u8! transports@num_transports{ transport_layer:u8! num_baud_rates:u8! }
    baud_rates@{ to_mws_baud_rate:u32*bit/s! from_mws_baud_rate:u32*bit/s! }
0x140D Set Triggered Clock Capture
  > connection_handle enable:on_off=on!! which_clock=local lpo_allowed:on_off=on num_clock_captures_to_filter:u8=0

0x1801 Read Loopback Mode < loopback_mode!!
0x1802 Write Loopback Mode > loopback_mode=local!!
0x1803 Enable Implementation Under Test Mode (enable_device_under_test_mode)
0x1804 Write Simple Pairing Debug Mode > mode:on_off!!
0x1807 Enable AMP Receiver Reports > enable:on_off!! interval:u8!
0x1808 AMP Test End ~ AMP Test End
0x1809 AMP Test > controller_type:u8! test_parameters:hex@? ~ AMP Start Test
0x180A Write Secure Connections Test Mode
  > connection_handle dm1_acl_u_mode:on_off esco_loopback_mode:on_off < connection_handle
)";
