#include "bthal/hci/dictionary/tables.h"

const char bthal::tool::kLeEvents[] = R"(
0x3E/0x01 LE Connection Complete
  > status connection_handle role peer_address_type:address_type peer_address:bd_addr connection_interval:u16*1.25ms
    peripheral_latency:u16 supervision_timeout:u16*10ms central_clock_accuracy:clock_accuracy
0x3E/0x02 LE Advertising Report
  > num_reports:u8
    reports@num_reports{ event_type:advertising_report address_type address:bd_addr data_length:u8
    data:ad@data_length!! rssi }
0x3E/0x03 LE Connection Update Complete
  > status connection_handle connection_interval:u16*1.25ms! peripheral_latency:u16! supervision_timeout:u16*10ms!
0x3E/0x04 LE Read Remote Features Complete > status connection_handle le_features
0x3E/0x05 LE Long Term Key Request > connection_handle random_number:x64 encrypted_diversifier:x16
0x3E/0x06 LE Remote Connection Parameter Request
  > connection_handle interval_min:u16*1.25ms! interval_max:u16*1.25ms! max_latency:u16! timeout:u16*10ms!
0x3E/0x07 LE Data Length Change
  > connection_handle max_tx_octets:u16! max_tx_time:u16*us max_rx_octets:u16! max_rx_time:u16*us
0x3E/0x08 LE Read Local P-256 Public Key Complete > status key_x_coordinate:hex32 key_y_coordinate:hex32
0x3E/0x09 LE Generate DHKey Complete > status dh_key:hex32
0x3E/0x0A LE Enhanced Connection Complete
  > status connection_handle role peer_address_type:address_type peer_address:bd_addr
    local_resolvable_private_address:addr peer_resolvable_private_address:addr connection_interval:u16*1.25ms
    peripheral_latency:u16 supervision_timeout:u16*10ms central_clock_accuracy:clock_accuracy
0x3E/0x0B LE Directed Advertising Report
  > num_reports:u8 reports@num_reports{ event_type:advertising_report address_type address:bd_addr
    direct_address_type:address_type direct_address:bd_addr rssi }
0x3E/0x0C LE PHY Update Complete > status connection_handle tx_phy:phy! rx_phy:phy!
0x3E/0x0D LE Extended Advertising Report
  > num_reports:u8 reports@num_reports{ event_type:extended_report address_type address:bd_addr primary_phy:phy
    secondary_phy:phy advertising_sid:u8 tx_power rssi periodic_advertising_interval:u16*1.25ms
    direct_address_type:address_type direct_address:addr data_length:u8 data:ad@data_length!! }
0x3E/0x0E LE Periodic Advertising Sync Established
  > status sync_handle advertising_sid! advertiser_address_type:address_type advertiser_address:bd_addr
    advertiser_phy:phy interval:u16*1.25ms advertiser_clock_accuracy:clock_accuracy
0x3E/0x0F LE Periodic Advertising Report
  > sync_handle tx_power rssi cte_type data_status data_length:u8 data:ad@data_length!!
0x3E/0x10 LE Periodic Advertising Sync Lost > sync_handle
0x3E/0x11 LE Scan Timeout
0x3E/0x12 LE Advertising Set Terminated
  > status advertising_handle connection_handle num_completed_extended_advertising_events:u8
0x3E/0x13 LE Scan Request Received > advertising_handle scanner_address_type:address_type scanner_address:bd_addr
0x3E/0x14 LE Channel Selection Algorithm > connection_handle algorithm:u8!
0x3E/0x15 LE Connectionless IQ Report
  > sync_handle channel_index:u8! rssi:i16*0.1dBm!! rssi_antenna_id:u8 cte_type slot_durations packet_status:iq_status
    periodic_event_counter:u16 sample_count:u8! samples@sample_count{ i:i8 q:i8 }
0x3E/0x16 LE Connection IQ Report
  > connection_handle rx_phy:phy data_channel_index:u8! rssi:i16*0.1dBm!! rssi_antenna_id:u8 cte_type slot_durations
    packet_status:iq_status connection_event_counter:u16 sample_count:u8! samples@sample_count{ i:i8 q:i8 }
0x3E/0x17 LE CTE Request Failed > status connection_handle
0x3E/0x18 LE Periodic Advertising Sync Transfer Received
  > status connection_handle service_data:x16 sync_handle advertising_sid! advertiser_address_type:address_type
    advertiser_address:bd_addr advertiser_phy:phy interval:u16*1.25ms advertiser_clock_accuracy:clock_accuracy
0x3E/0x19 LE CIS Established
  > status connection_handle cig_sync_delay:u24*us cis_sync_delay:u24*us transport_latency_c_to_p:u24*us
    transport_latency_p_to_c:u24*us phy_c_to_p:phy phy_p_to_c:phy nse:u8 bn_c_to_p:u8 bn_p_to_c:u8 ft_c_to_p:u8
    ft_p_to_c:u8 max_pdu_c_to_p:u16 max_pdu_p_to_c:u16 iso_interval:u16*1.25ms
0x3E/0x1A LE CIS Request
  > acl_connection_handle:connection_handle cis_connection_handle:connection_handle cig_id cis_id:u8
0x3E/0x1B LE Create BIG Complete
  > status big_handle big_sync_delay:u24*us transport_latency_big:u24*us phy nse:u8 bn:u8 pto:u8 irc:u8 max_pdu:u16
    iso_interval:u16*1.25ms num_bis:u8! bises@num_bis{ connection_handle }
0x3E/0x1C LE Terminate BIG Complete > big_handle reason
0x3E/0x1D LE BIG Sync Established
  > status big_handle transport_latency_big:u24*us nse:u8 bn:u8 pto:u8 irc:u8 max_pdu:u16 iso_interval:u16*1.25ms
    num_bis:u8! bises@num_bis{ connection_handle }
0x3E/0x1E LE BIG Sync Lost > big_handle reason
0x3E/0x1F LE Request Peer SCA Complete > status connection_handle peer_clock_accuracy:clock_accuracy!!
0x3E/0x20 LE Path Loss Threshold > connection_handle current_path_loss:u8*dB!! zone_entered:path_loss_zone!
0x3E/0x21 LE Transmit Power Reporting
  > status connection_handle reason:power_reason! phy! transmit_power_level:tx_power!
    transmit_power_level_flag:power_flags delta:i8*dB!
0x3E/0x22 LE BIGInfo Advertising Report
  > sync_handle num_bis:u8! nse:u8 iso_interval:u16*1.25ms bn:u8 pto:u8 irc:u8 max_pdu:u16 sdu_interval:u24*us
    max_sdu:u16
    phy framing encryption:on_off!
0x3E/0x23 LE Subrate Change
  > status connection_handle subrate_factor:u16! peripheral_latency:u16! continuation_number:u16
    supervision_timeout:u16*10ms
0x3E/0x24 LE Periodic Advertising Sync Established [v2]
  > status sync_handle advertising_sid! advertiser_address_type:address_type advertiser_address:bd_addr
    advertiser_phy:phy interval:u16*1.25ms advertiser_clock_accuracy:clock_accuracy num_subevents:u8!
    subevent_interval:u8*1.25ms response_slot_delay:u8*1.25ms response_slot_spacing:u8*0.125ms
0x3E/0x25 LE Periodic Advertising Report [v2]
  > sync_handle tx_power rssi cte_type periodic_event_counter:u16 subevent:u8! data_status data_length:u8
    data:ad@data_length!!
0x3E/0x26 LE Periodic Advertising Sync Transfer Received [v2]
  > status connection_handle service_data:x16 sync_handle advertising_sid! advertiser_address_type:address_type
    advertiser_address:bd_addr advertiser_phy:phy interval:u16*1.25ms advertiser_clock_accuracy:clock_accuracy
    num_subevents:u8! subevent_interval:u8*1.25ms response_slot_delay:u8*1.25ms response_slot_spacing:u8*0.125ms
0x3E/0x27 LE Periodic Advertising Subevent Data Request
  > advertising_handle subevent_start:u8! subevent_data_count:u8!
0x3E/0x28 LE Periodic Advertising Response Report
  > advertising_handle subevent:u8! tx_status:u8 num_responses:u8!
    responses@num_responses{ tx_power rssi cte_type response_slot:u8! data_status data_length:u8 data:ad@data_length }
0x3E/0x29 LE Enhanced Connection Complete [v2]
  > status connection_handle role peer_address_type:address_type peer_address:bd_addr
    local_resolvable_private_address:addr peer_resolvable_private_address:addr connection_interval:u16*1.25ms
    peripheral_latency:u16 supervision_timeout:u16*10ms central_clock_accuracy:clock_accuracy advertising_handle:u8
    sync_handle:x16
0x3E/0x2A LE CIS Established [v2]
  > status connection_handle cig_sync_delay:u24*us cis_sync_delay:u24*us transport_latency_c_to_p:u24*us
    transport_latency_p_to_c:u24*us phy_c_to_p:phy phy_p_to_c:phy nse:u8 bn_c_to_p:u8 bn_p_to_c:u8 ft_c_to_p:u8
    ft_p_to_c:u8 max_pdu_c_to_p:u16 max_pdu_p_to_c:u16 iso_interval:u16*1.25ms sub_interval:u24*us max_sdu_c_to_p:u16
    max_sdu_p_to_c:u16 sdu_interval_c_to_p:u24*us sdu_interval_p_to_c:u24*us framing
0x3E/0x2B LE Read All Remote Features Complete
  > status connection_handle max_remote_page:u8! max_valid_page:u8! le_features:hex248
0x3E/0x2C LE CS Read Remote Supported Capabilities Complete
  > status connection_handle num_config_supported:u8! max_consecutive_procedures_supported:u16
    num_antennas_supported:u8!
    max_antenna_paths_supported:u8 roles_supported:cs_roles! modes_supported:x8 rtt_capability:x8 rtt_aa_only_n:u8
    rtt_sounding_n:u8 rtt_random_payload_n:u8 nadm_sounding_capability:x16 nadm_random_capability:x16
    cs_sync_phys_supported:x8 subfeatures_supported:x16 t_ip1_times_supported:x16 t_ip2_times_supported:x16
    t_fcs_times_supported:x16 t_pm_times_supported:x16 t_sw_time_supported:u8*us tx_snr_capability:x8
0x3E/0x2D LE CS Read Remote FAE Table Complete > status connection_handle remote_fae_table:hex72
0x3E/0x2E LE CS Security Enable Complete > status connection_handle
0x3E/0x2F LE CS Config Complete
  > status connection_handle config_id:u8! action:u8! main_mode_type:u8 sub_mode_type:u8 min_main_mode_steps:u8
    max_main_mode_steps:u8 main_mode_repetition:u8 mode_0_steps:u8 role:cs_role rtt_type:u8 cs_sync_phy:phy
    channel_map:hex10 channel_map_repetition:u8 channel_selection_type:u8 ch3c_shape:u8 ch3c_jump:u8 cs_enhancements:u8
    t_ip1_time:u8*us t_ip2_time:u8*us t_fcs_time:u8*us t_pm_time:u8*us
0x3E/0x30 LE CS Procedure Enable Complete
  > status connection_handle config_id:u8! state:on_off!! tone_antenna_config_selection:u8 selected_tx_power:i8*dBm
    subevent_length:u24*us subevents_per_event:u8 subevent_interval:u16*0.625ms event_interval:u16
    procedure_interval:u16
    procedure_count:u16 max_procedure_length:u16*0.625ms
0x3E/0x31 LE CS Subevent Result
  > connection_handle config_id:u8! start_acl_connection_event_counter:u16 procedure_counter:u16!
    frequency_compensation:i16*0.01ppm reference_power_level:i8*dBm procedure_done_status:cs_done
    subevent_done_status:cs_done abort_reason:x8 num_antenna_paths:u8 num_steps_reported:u8!
    steps@num_steps_reported{ step_mode:u8 step_channel:u8 step_data_length:u8 step_data:hex@step_data_length }
0x3E/0x32 LE CS Subevent Result Continue
  > connection_handle config_id:u8! procedure_done_status:cs_done subevent_done_status:cs_done abort_reason:x8
    num_antenna_paths:u8 num_steps_reported:u8!
    steps@num_steps_reported{ step_mode:u8 step_channel:u8 step_data_length:u8 step_data:hex@step_data_length }
0x3E/0x33 LE CS Test End Complete > status
0x3E/0x34 LE Monitored Advertisers Report > address_type address:bd_addr condition:u8!
0x3E/0x35 LE Frame Space Update Complete
  > status connection_handle initiator:u8! frame_space:u16*us! phys spacing_types:x16
)";
