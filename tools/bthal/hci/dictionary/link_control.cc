#include "bthal/hci/dictionary/tables.h"

const char bthal::tool::kLinkControl[] = R"(
0x0000 NOP
0x0401 Inquiry > lap=0x9E8B33 inquiry_length:u8(1..0x30)*1.28s=4! num_responses:u8=0 ~ Inquiry Complete
0x0402 Inquiry Cancel
0x0403 Periodic Inquiry Mode
  > max_period_length:u16(3..0xFFFF)*1.28s min_period_length:u16(2..0xFFFE)*1.28s lap=0x9E8B33
    inquiry_length:u8(1..0x30)*1.28s=4 num_responses:u8=0
0x0404 Exit Periodic Inquiry Mode
0x0405 Create Connection
  > bd_addr packet_type:acl_packet_type=0xCC18 page_scan_repetition_mode=R2 reserved:u8=0 clock_offset=0
    allow_role_switch:on_off=on ~ Connection Complete
0x0406 Disconnect > connection_handle reason=0x13 ~ Disconnection Complete
0x0407 Add SCO Connection > connection_handle packet_type:sco_packet_type=0x00E0 ~ Connection Complete
0x0408 Create Connection Cancel > bd_addr < bd_addr
0x0409 Accept Connection Request > bd_addr role=peripheral ~ Connection Complete
0x040A Reject Connection Request > bd_addr reason=0x0D ~ Connection Complete
0x040B Link Key Request Reply > bd_addr link_key:hex16 < bd_addr
0x040C Link Key Request Negative Reply > bd_addr < bd_addr
0x040D PIN Code Request Reply > bd_addr pin_code_length:u8(1..16) pin_code:text16@pin_code_length < bd_addr
0x040E PIN Code Request Negative Reply > bd_addr < bd_addr
0x040F Change Connection Packet Type > connection_handle packet_type:acl_packet_type ~ Connection Packet Type Changed
0x0411 Authentication Requested > connection_handle ~ Authentication Complete
0x0413 Set Connection Encryption > connection_handle encryption_enable:on_off=on!! ~ Encryption Change
0x0415 Change Connection Link Key > connection_handle ~ Change Connection Link Key Complete
0x0417 Link Key Selection (master_link_key) > key_flag ~ Link Key Type Changed
0x0419 Remote Name Request
  > bd_addr page_scan_repetition_mode=R2 reserved:u8=0 clock_offset=0 ~ Remote Name Request Complete
0x041A Remote Name Request Cancel > bd_addr < bd_addr
0x041B Read Remote Supported Features > connection_handle ~ Read Remote Supported Features Complete
0x041C Read Remote Extended Features
  > connection_handle page_number:u8=0! ~ Read Remote Extended Features Complete
0x041D Read Remote Version Information > connection_handle ~ Read Remote Version Information Complete
0x041F Read Clock Offset > connection_handle ~ Read Clock Offset Complete
0x0420 Read LMP Handle > connection_handle < connection_handle lmp_handle:u8! reserved:x32
0x0428 Setup Synchronous Connection
  > connection_handle transmit_bandwidth:u32=8000 receive_bandwidth:u32=8000 max_latency:u16*ms=0xFFFF
    voice_setting=0x0060 retransmission_effort=0xFF packet_type:esco_packet_type=0x003F
  ~ Synchronous Connection Complete
0x0429 Accept Synchronous Connection Request
  > bd_addr transmit_bandwidth:u32=8000 receive_bandwidth:u32=8000 max_latency:u16*ms=0xFFFF voice_setting=0x0060
    retransmission_effort=0xFF packet_type:esco_packet_type=0x003F ~ Synchronous Connection Complete
0x042A Reject Synchronous Connection Request > bd_addr reason=0x0D ~ Synchronous Connection Complete
0x042B IO Capability Request Reply
  > bd_addr io_capability=no_input_no_output oob_data_present=none authentication_requirements=no_mitm_general_bonding
  < bd_addr
0x042C User Confirmation Request Reply > bd_addr < bd_addr
0x042D User Confirmation Request Negative Reply > bd_addr < bd_addr
0x042E User Passkey Request Reply > bd_addr numeric_value:u32(0..999999)! < bd_addr
0x042F User Passkey Request Negative Reply > bd_addr < bd_addr
0x0430 Remote OOB Data Request Reply > bd_addr c:hex16 r:hex16 < bd_addr
0x0433 Remote OOB Data Request Negative Reply > bd_addr < bd_addr
0x0434 IO Capability Request Negative Reply > bd_addr reason=0x18 < bd_addr
0x0435 Create Physical Link
  > physical_link_handle:u8! dedicated_amp_key_length:u8 dedicated_amp_key_type:u8
    dedicated_amp_key:hex@dedicated_amp_key_length ~ Physical Link Complete
0x0436 Accept Physical Link
  > physical_link_handle:u8! dedicated_amp_key_length:u8 dedicated_amp_key_type:u8
    dedicated_amp_key:hex@dedicated_amp_key_length ~ Physical Link Complete
0x0437 Disconnect Physical Link > physical_link_handle:u8! reason=0x13 ~ Disconnection Physical Link Complete
0x0438 Create Logical Link
  > physical_link_handle:u8! tx_flow_spec:hex16 rx_flow_spec:hex16 ~ Logical Link Complete
0x0439 Accept Logical Link
  > physical_link_handle:u8! tx_flow_spec:hex16 rx_flow_spec:hex16 ~ Logical Link Complete
0x043A Disconnect Logical Link > logical_link_handle:x16! ~ Disconnection Logical Link Complete
0x043B Logical Link Cancel
  > physical_link_handle:u8! tx_flow_spec_id:u8! < physical_link_handle:u8! tx_flow_spec_id:u8!
0x043C Flow Spec Modify > connection_handle tx_flow_spec:hex16 rx_flow_spec:hex16 ~ Flow Spec Modify Complete
0x043D Enhanced Setup Synchronous Connection
  > connection_handle transmit_bandwidth:u32=8000 receive_bandwidth:u32=8000
    transmit_coding_format:coding_format=mSBC transmit_company:company=0 transmit_codec:x16=0
    receive_coding_format:coding_format=mSBC receive_company:company=0 receive_codec:x16=0
    transmit_codec_frame_size:u16=60 receive_codec_frame_size:u16=60 input_bandwidth:u32=32000
    output_bandwidth:u32=32000 input_coding_format:coding_format=linear_pcm input_company:company=0 input_codec:x16=0
    output_coding_format:coding_format=linear_pcm output_company:company=0 output_codec:x16=0
    input_coded_data_size:u16=16 output_coded_data_size:u16=16 input_pcm_data_format:pcm_data_format=two_s_complement
    output_pcm_data_format:pcm_data_format=two_s_complement input_pcm_msb_position:u8=0 output_pcm_msb_position:u8=0
    input_data_path:data_path=1 output_data_path:data_path=1 input_transport_unit_size:u8=16
    output_transport_unit_size:u8=16 max_latency:u16*ms=13 packet_type:esco_packet_type=0x0388
    retransmission_effort=for_link_quality ~ Synchronous Connection Complete
0x043E Enhanced Accept Synchronous Connection Request
  > bd_addr transmit_bandwidth:u32=8000 receive_bandwidth:u32=8000
    transmit_coding_format:coding_format=mSBC transmit_company:company=0 transmit_codec:x16=0
    receive_coding_format:coding_format=mSBC receive_company:company=0 receive_codec:x16=0
    transmit_codec_frame_size:u16=60 receive_codec_frame_size:u16=60 input_bandwidth:u32=32000
    output_bandwidth:u32=32000 input_coding_format:coding_format=linear_pcm input_company:company=0 input_codec:x16=0
    output_coding_format:coding_format=linear_pcm output_company:company=0 output_codec:x16=0
    input_coded_data_size:u16=16 output_coded_data_size:u16=16 input_pcm_data_format:pcm_data_format=two_s_complement
    output_pcm_data_format:pcm_data_format=two_s_complement input_pcm_msb_position:u8=0 output_pcm_msb_position:u8=0
    input_data_path:data_path=1 output_data_path:data_path=1 input_transport_unit_size:u8=16
    output_transport_unit_size:u8=16 max_latency:u16*ms=13 packet_type:esco_packet_type=0x0388
    retransmission_effort=for_link_quality ~ Synchronous Connection Complete
0x043F Truncated Page > bd_addr page_scan_repetition_mode=R2 clock_offset=0 ~ Truncated Page Complete
0x0440 Truncated Page Cancel > bd_addr < bd_addr
0x0441 Set Connectionless Peripheral Broadcast
  > enable:on_off=on!! lt_addr:u8(1..7)! lpo_allowed:on_off=on packet_type:acl_packet_type
    interval_min:u16(2..0xFFFE)*0.625ms interval_max:u16(2..0xFFFE)*0.625ms
    supervision_timeout:u16(2..0xFFFE)*0.625ms < lt_addr:u8! interval:u16*0.625ms!
0x0442 Set Connectionless Peripheral Broadcast Receive
  > enable:on_off=on!! bd_addr lt_addr:u8(1..7) interval:u16(2..0xFFFE)*0.625ms clock_offset:x32
    next_broadcast_clock:x32 supervision_timeout:u16(2..0xFFFE)*0.625ms remote_timing_accuracy:u8*ppm skip:u8=0
    packet_type:acl_packet_type afh_channel_map:channel_map < bd_addr lt_addr:u8!
0x0443 Start Synchronization Train ~ Synchronization Train Complete
0x0444 Receive Synchronization Train
  > bd_addr scan_timeout:u16(0x22..0xFFFE)*0.625ms scan_window:u16(0x22..0xFFFE)*0.625ms
    scan_interval:u16(2..0xFFFE)*0.625ms ~ Synchronization Train Received
0x0445 Remote OOB Extended Data Request Reply
  > bd_addr c_192:hex16 r_192:hex16 c_256:hex16 r_256:hex16 < bd_addr
)";
