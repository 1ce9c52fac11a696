#include "bthal/hci/dictionary/tables.h"

// LE: direction finding, isochronous channels, power control, subrating, responses to periodic advertising, channel
// sounding.
const char bthal::tool::kLeExtendedCommands[] = R"(
0x2051 LE Set Connectionless CTE Transmit Parameters
  > advertising_handle=0 cte_length:u8(2..0x14)*8us=2 cte_type=aoa cte_count:u8(1..0x10)=1
    switching_pattern_length:u8(0..0x4B) antenna_ids@switching_pattern_length{ antenna_id:u8 }
0x2052 LE Set Connectionless CTE Transmit Enable > advertising_handle=0 cte_enable:on_off=on!!
0x2053 LE Set Connectionless IQ Sampling Enable
  > sync_handle sampling_enable:on_off=on!! slot_durations=1_us max_sampled_ctes:u8(0..0x10)=0
    switching_pattern_length:u8(0..0x4B) antenna_ids@switching_pattern_length{ antenna_id:u8 } < sync_handle
0x2054 LE Set Connection CTE Receive Parameters
  > connection_handle sampling_enable:on_off=on!! slot_durations=1_us switching_pattern_length:u8(0..0x4B)
    antenna_ids@switching_pattern_length{ antenna_id:u8 } < connection_handle
0x2055 LE Set Connection CTE Transmit Parameters
  > connection_handle cte_types switching_pattern_length:u8(0..0x4B)
    antenna_ids@switching_pattern_length{ antenna_id:u8 } < connection_handle
0x2056 LE Connection CTE Request Enable
  > connection_handle enable:on_off=on!! cte_request_interval:u16=0 requested_cte_length:u8(2..0x14)*8us=2
    requested_cte_type:cte_type=aoa < connection_handle
0x2057 LE Connection CTE Response Enable > connection_handle enable:on_off=on!! < connection_handle
0x2058 LE Read Antenna Information
  < supported_switching_sampling_rates:x8 num_antennae:u8! max_switching_pattern_length:u8 max_cte_length:u8*8us
0x2059 LE Set Periodic Advertising Receive Enable > sync_handle enable:u8(0..3)=1!
0x205A LE Periodic Advertising Sync Transfer > connection_handle service_data:x16=0 sync_handle < connection_handle
0x205B LE Periodic Advertising Set Info Transfer
  > connection_handle service_data:x16=0 advertising_handle=0 < connection_handle
0x205C LE Set Periodic Advertising Sync Transfer Parameters
  > connection_handle mode:transfer_mode! skip:u16(0..0x01F3)=0 sync_timeout:u16(0x0A..0x4000)*10ms=0x01F4
    cte_type:no_cte_types=0 < connection_handle
0x205D LE Set Default Periodic Advertising Sync Transfer Parameters
  > mode:transfer_mode! skip:u16(0..0x01F3)=0 sync_timeout:u16(0x0A..0x4000)*10ms=0x01F4 cte_type:no_cte_types=0
0x205E LE Generate DHKey [v2]
  > key_x_coordinate:hex32 key_y_coordinate:hex32 key_type:u8(0..1)=0 ~ LE Generate DHKey Complete
0x205F LE Modify Sleep Clock Accuracy > action:u8(0..1)!
0x2060 LE Read Buffer Size [v2]
  < le_acl_data_packet_length:u16! total_num_le_acl_data_packets:u8! iso_data_packet_length:u16!
    total_num_iso_data_packets:u8!
0x2061 LE Read ISO TX Sync
  > connection_handle < connection_handle packet_sequence_number:u16! tx_time_stamp:u32*us! time_offset:u24*us!
0x2062 LE Set CIG Parameters
  > cig_id sdu_interval_c_to_p:u24(0xFF..0xFFFFF)*us sdu_interval_p_to_c:u24(0xFF..0xFFFFF)*us
    worst_case_sca:clock_accuracy=0 packing=sequential framing=unframed max_transport_latency_c_to_p:u16(5..0x0FA0)*ms
    max_transport_latency_p_to_c:u16(5..0x0FA0)*ms cis_count:u8(0..0x1F)
    cises@cis_count{ cis_id:u8(0..0xEF) max_sdu_c_to_p:u16(0..0x0FFF) max_sdu_p_to_c:u16(0..0x0FFF)
    phy_c_to_p:phys=le_2m
    phy_p_to_c:phys=le_2m rtn_c_to_p:u8=2 rtn_p_to_c:u8=2 }
  < cig_id cis_count:u8! cises@cis_count{ connection_handle }
0x2063 LE Set CIG Parameters Test
  > cig_id sdu_interval_c_to_p:u24(0xFF..0xFFFFF)*us sdu_interval_p_to_c:u24(0xFF..0xFFFFF)*us ft_c_to_p:u8(1..0xFF)
    ft_p_to_c:u8(1..0xFF) iso_interval:u16(4..0x0C80)*1.25ms worst_case_sca:clock_accuracy=0 packing=sequential
    framing=unframed cis_count:u8(0..0x1F)
    cises@cis_count{ cis_id:u8(0..0xEF) nse:u8(1..0x1F) max_sdu_c_to_p:u16(0..0x0FFF) max_sdu_p_to_c:u16(0..0x0FFF)
    max_pdu_c_to_p:u16(0..0xFB) max_pdu_p_to_c:u16(0..0xFB) phy_c_to_p:phys=le_2m phy_p_to_c:phys=le_2m
    bn_c_to_p:u8(0..0x0F) bn_p_to_c:u8(0..0x0F) }
  < cig_id cis_count:u8! cises@cis_count{ connection_handle }
0x2064 LE Create CIS
  > cis_count:u8(1..0x1F) cises@cis_count{ cis_connection_handle:connection_handle
    acl_connection_handle:connection_handle } ~ LE CIS Established
0x2065 LE Remove CIG > cig_id < cig_id
0x2066 LE Accept CIS Request > connection_handle ~ LE CIS Established
0x2067 LE Reject CIS Request > connection_handle reason=0x0D < connection_handle
0x2068 LE Create BIG
  > big_handle advertising_handle=0 num_bis:u8(1..0x1F)! sdu_interval:u24(0xFF..0xFFFFF)*us max_sdu:u16(1..0x0FFF)
    max_transport_latency:u16(5..0x0FA0)*ms rtn:u8(0..0x1E)=2 phy:phys=le_2m packing=sequential framing=unframed
    encryption:on_off=off broadcast_code:hex16=00 ~ LE Create BIG Complete
0x2069 LE Create BIG Test
  > big_handle advertising_handle=0 num_bis:u8(1..0x1F)! sdu_interval:u24(0xFF..0xFFFFF)*us
    iso_interval:u16(4..0x0C80)*1.25ms nse:u8(1..0x1F) max_sdu:u16(1..0x0FFF) max_pdu:u16(1..0xFB) phy:phys=le_2m
    packing=sequential framing=unframed bn:u8(1..7) irc:u8(1..0x0F) pto:u8(0..0x0F)=0 encryption:on_off=off
    broadcast_code:hex16=00 ~ LE Create BIG Complete
0x206A LE Terminate BIG > big_handle reason=0x16 ~ LE Terminate BIG Complete
0x206B LE BIG Create Sync
  > big_handle sync_handle encryption:on_off=off broadcast_code:hex16=00 mse:u8(0..0x1F)=0
    big_sync_timeout:u16(0x0A..0x4000)*10ms=0x01F4 num_bis:u8(1..0x1F) bises@num_bis{ bis:u8(1..0x1F)! }
  ~ LE BIG Sync Established
0x206C LE BIG Terminate Sync > big_handle < big_handle
0x206D LE Request Peer SCA > connection_handle ~ LE Request Peer SCA Complete
0x206E LE Setup ISO Data Path
  > connection_handle direction:data_path_direction!! data_path_id:data_path=0! codec:coding_format=transparent
    company=0
    vendor_codec:x16=0 controller_delay:u24(0..0x3D0900)*us=0 codec_configuration_length:u8
    codec_configuration:hex@codec_configuration_length < connection_handle
0x206F LE Remove ISO Data Path > connection_handle directions:u8(1..3)! < connection_handle
0x2070 LE ISO Transmit Test > connection_handle payload_type:iso_payload! < connection_handle
0x2071 LE ISO Receive Test > connection_handle payload_type:iso_payload! < connection_handle
0x2072 LE ISO Read Test Counters
  > connection_handle < connection_handle received_sdu_count:u32! missed_sdu_count:u32! failed_sdu_count:u32!
0x2073 LE ISO Test End
  > connection_handle < connection_handle received_sdu_count:u32! missed_sdu_count:u32! failed_sdu_count:u32!
0x2074 LE Set Host Feature > bit_number:u8(0..0x3F)! bit_value:on_off=on!!
0x2075 LE Read ISO Link Quality
  > connection_handle
  < connection_handle tx_unacked_packets:u32 tx_flushed_packets:u32 tx_last_subevent_packets:u32
    retransmitted_packets:u32 crc_error_packets:u32! rx_unreceived_packets:u32! duplicate_packets:u32
0x2076 LE Enhanced Read Transmit Power Level
  > connection_handle phy=le_1m!
  < connection_handle phy! current_transmit_power_level:tx_power! max_transmit_power_level:tx_power!
0x2077 LE Read Remote Transmit Power Level > connection_handle phy=le_1m! ~ LE Transmit Power Reporting
0x2078 LE Set Path Loss Reporting Parameters
  > connection_handle high_threshold:u8*dB high_hysteresis:u8*dB low_threshold:u8*dB low_hysteresis:u8*dB
    min_time_spent:u16 < connection_handle
0x2079 LE Set Path Loss Reporting Enable > connection_handle enable:on_off=on!! < connection_handle
0x207A LE Set Transmit Power Reporting Enable
  > connection_handle local_enable:on_off=on remote_enable:on_off=on < connection_handle
0x207B LE Transmitter Test [v4]
  > tx_channel:u8(0..0x27)! test_data_length:u8=37 packet_payload:test_payload=PRBS9 phy=le_1m!
    cte_length:u8(0..0x14)*8us=0 cte_type=aoa switching_pattern_length:u8(0..0x4B)
    antenna_ids@switching_pattern_length{ antenna_id:u8 } transmit_power_level:i8*dBm=0x7F
0x207C LE Set Data Related Address Changes > advertising_handle=0 change_reasons:x8(0..3)!
0x207D LE Set Default Subrate
  > subrate_min:u16(1..0x01F4)=1 subrate_max:u16(1..0x01F4)=1 max_latency:u16(0..0x01F3)=0
    continuation_number:u16(0..0x01F3)=0 supervision_timeout:u16(0x0A..0x0C80)*10ms=0x01F4
0x207E LE Subrate Request
  > connection_handle subrate_min:u16(1..0x01F4)=1 subrate_max:u16(1..0x01F4)=1 max_latency:u16(0..0x01F3)=0
    continuation_number:u16(0..0x01F3)=0 supervision_timeout:u16(0x0A..0x0C80)*10ms=0x01F4 ~ LE Subrate Change
0x207F LE Set Extended Advertising Parameters [v2]
  > advertising_handle=0 event_properties:advertising_properties=0x0013 primary_interval_min:u24(0x20..)*0.625ms=0x0800
    primary_interval_max:u24(0x20..)*0.625ms=0x0800 primary_channel_map:advertising_channels=7 own_address_type=public
    peer_address_type:address_type=public peer_address:addr=00:00:00:00:00:00 filter_policy:advertising_filter=anyone
    tx_power=127 primary_phy:phy=le_1m secondary_max_skip:u8=0 secondary_phy:phy=le_1m advertising_sid=0
    scan_request_notification_enable:on_off=off primary_phy_options:phy_coding=0 secondary_phy_options:phy_coding=0
  < selected_tx_power:tx_power!
0x2080 LE Set Decision Data
  > advertising_handle=0 decision_type_flags:x8 decision_data_length:u8(0..8) decision_data:hex@decision_data_length
0x2081 LE Set Decision Instructions
  > num_tests:u8(0..8) tests@num_tests{ test_flags:x8 test_field:u8 test_parameters:hex16 }
0x2082 LE Set Periodic Advertising Subevent Data
  > advertising_handle=0 num_subevents:u8(1..0x0F)
    subevents@num_subevents{ subevent:u8(0..0x7F)! response_slot_start:u8 response_slot_count:u8 data_length:u8(0..251)
    data:ad@data_length } < advertising_handle
0x2083 LE Set Periodic Advertising Response Data
  > sync_handle request_event:u16! request_subevent:u8(0..0x7F)! response_subevent:u8(0..0x7F) response_slot:u8
    data_length:u8(0..251) data:ad@data_length < sync_handle
0x2084 LE Set Periodic Sync Subevent
  > sync_handle properties:periodic_properties=0 num_subevents:u8(1..0x80) subevents@num_subevents{
    subevent:u8(0..0x7F)! }
  < sync_handle
0x2085 LE Extended Create Connection [v2]
  > advertising_handle:u8=0xFF subevent:u8=0xFF filter_policy:initiator_filter=peer_address own_address_type=public
    peer_address_type:address_type=public peer_address:bd_addr initiating_phys:phys=le_1m!
    connections^initiating_phys{ scan_interval:u16(4..0xFFFF)*0.625ms=0x0060 scan_window:u16(4..0xFFFF)*0.625ms=0x0030
    interval_min:u16(6..0x0C80)*1.25ms=0x0018 interval_max:u16(6..0x0C80)*1.25ms=0x0028 max_latency:u16(0..0x01F3)=0
    supervision_timeout:u16(0x0A..0x0C80)*10ms=0x01F4 min_ce_length:u16*0.625ms=0 max_ce_length:u16*0.625ms=0 }
  ~ LE Enhanced Connection Complete [v2]
0x2086 LE Set Periodic Advertising Parameters [v2]
  > advertising_handle=0 interval_min:u16(6..0xFFFF)*1.25ms=0x0320 interval_max:u16(6..0xFFFF)*1.25ms=0x0320
    properties:periodic_properties=0 num_subevents:u8(0..0x80)=0! subevent_interval:u8*1.25ms=0
    response_slot_delay:u8*1.25ms=0 response_slot_spacing:u8*0.125ms=0 num_response_slots:u8=0 < advertising_handle
0x2087 LE Read All Local Supported Features < max_page:u8! le_features:hex248
0x2088 LE Read All Remote Features > connection_handle pages_requested:u8(0..10)=0! ~ LE Read All Remote Features
    Complete
0x2089 LE CS Read Local Supported Capabilities
  < num_config_supported:u8! max_consecutive_procedures_supported:u16 num_antennas_supported:u8!
    max_antenna_paths_supported:u8 roles_supported:cs_roles! modes_supported:x8 rtt_capability:x8 rtt_aa_only_n:u8
    rtt_sounding_n:u8 rtt_random_payload_n:u8 nadm_sounding_capability:x16 nadm_random_capability:x16
    cs_sync_phys_supported:x8 subfeatures_supported:x16 t_ip1_times_supported:x16 t_ip2_times_supported:x16
    t_fcs_times_supported:x16 t_pm_times_supported:x16 t_sw_time_supported:u8*us tx_snr_capability:x8
0x208A LE CS Read Remote Supported Capabilities
  > connection_handle ~ LE CS Read Remote Supported Capabilities Complete
0x208B LE CS Write Cached Remote Supported Capabilities
  > connection_handle num_config_supported:u8! max_consecutive_procedures_supported:u16 num_antennas_supported:u8!
    max_antenna_paths_supported:u8 roles_supported:cs_roles! modes_supported:x8 rtt_capability:x8 rtt_aa_only_n:u8
    rtt_sounding_n:u8 rtt_random_payload_n:u8 nadm_sounding_capability:x16 nadm_random_capability:x16
    cs_sync_phys_supported:x8 subfeatures_supported:x16 t_ip1_times_supported:x16 t_ip2_times_supported:x16
    t_fcs_times_supported:x16 t_pm_times_supported:x16 t_sw_time_supported:u8*us tx_snr_capability:x8
  < connection_handle
0x208C LE CS Security Enable > connection_handle ~ LE CS Security Enable Complete
0x208D LE CS Set Default Settings
  > connection_handle role_enable:cs_roles=3! cs_sync_antenna_selection:u8=0xFE max_tx_power:i8*dBm=20
  < connection_handle
0x208E LE CS Read Remote FAE Table > connection_handle ~ LE CS Read Remote FAE Table Complete
0x208F LE CS Write Cached Remote FAE Table > connection_handle remote_fae_table:hex72 < connection_handle
0x2090 LE CS Create Config
  > connection_handle config_id:u8(0..3)=0! create_context:u8(0..1)=1 main_mode_type:u8(1..3)=2 sub_mode_type:u8=0xFF
    min_main_mode_steps:u8=2 max_main_mode_steps:u8=5 main_mode_repetition:u8(0..3)=0 mode_0_steps:u8(1..3)=3
    role:cs_role=initiator! rtt_type:u8(0..6)=0 cs_sync_phy:phy=le_1m channel_map:hex10
    channel_map_repetition:u8=1 channel_selection_type:u8(0..1)=0 ch3c_shape:u8(0..1)=0 ch3c_jump:u8(2..8)=2
    cs_enhancements:u8=0 ~ LE CS Config Complete
0x2091 LE CS Remove Config > connection_handle config_id:u8(0..3)=0! ~ LE CS Config Complete
0x2092 LE CS Set Channel Classification > channel_classification:hex10
0x2093 LE CS Set Procedure Parameters
  > connection_handle config_id:u8(0..3)=0! max_procedure_length:u16*0.625ms min_procedure_interval:u16
    max_procedure_interval:u16 max_procedure_count:u16=0 min_subevent_length:u24*us max_subevent_length:u24*us
    tone_antenna_config_selection:u8(0..7)=0 phy=le_1m tx_power_delta:i8*dB preferred_peer_antenna:x8=1
    snr_control_initiator:u8=0xFF snr_control_reflector:u8=0xFF < connection_handle
0x2094 LE CS Procedure Enable
  > connection_handle config_id:u8(0..3)=0! enable:on_off=on!! ~ LE CS Procedure Enable Complete
0x2095 LE CS Test
  > main_mode_type:u8! sub_mode_type:u8=0xFF main_mode_repetition:u8=0 mode_0_steps:u8=3 role:cs_role=initiator!
    rtt_type:u8=0 cs_sync_phy:phy=le_1m cs_sync_antenna_selection:u8=1 subevent_length:u24*us
    subevent_interval:u16*0.625ms max_num_subevents:u8=0 transmit_power_level:i8*dBm t_ip1_time:u8*us t_ip2_time:u8*us
    t_fcs_time:u8*us t_pm_time:u8*us t_sw_time:u8*us tone_antenna_config_selection:u8=0 reserved:u8=0
    snr_control_initiator:u8=0xFF snr_control_reflector:u8=0xFF drbg_nonce:x16=0 channel_map_repetition:u8=1
    override_config:x16=0 override_parameters_length:u8 override_parameters:hex@override_parameters_length
0x2096 LE CS Test End ~ LE CS Test End Complete
0x2097 LE Set Host Feature [v2] > bit_number:u16! bit_value:on_off=on!!
0x2098 LE Add Device To Monitored Advertisers List
  > address_type=public address:bd_addr rssi_threshold_low:i8*dBm rssi_threshold_high:i8*dBm timeout:u8*s
0x2099 LE Remove Device From Monitored Advertisers List > address_type=public address:bd_addr
0x209A LE Clear Monitored Advertisers List
0x209B LE Read Monitored Advertisers List Size < size:u8!
0x209C LE Enable Monitoring Advertisers > enable:on_off=on!!
0x209D LE Frame Space Update
  > connection_handle frame_space_min:u16(0..10000)*us frame_space_max:u16(0..10000)*us phys=7
    spacing_types:x16(1..0x1F)
  ~ LE Frame Space Update Complete
)";
