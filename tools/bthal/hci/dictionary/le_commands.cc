#include "bthal/hci/dictionary/tables.h"

// LE, from its beginning to connections over several PHYs.
const char bthal::tool::kLeCommands[] = R"(
0x2001 LE Set Event Mask > le_event_mask:x64=0x0000000000FFFFFF
0x2002 LE Read Buffer Size < le_acl_data_packet_length:u16! total_num_le_acl_data_packets:u8!
0x2003 LE Read Local Supported Features (le_read_local_features) < le_features
0x2005 LE Set Random Address > random_address:bd_addr
0x2006 LE Set Advertising Parameters (le_advertising_parameters)
  > interval_min:u16(0x20..0x4000)*0.625ms=0x0800 interval_max:u16(0x20..0x4000)*0.625ms=0x0800
    type:advertising_event=ADV_IND!! own_address_type=public peer_address_type:address_type=public
    peer_address:addr=00:00:00:00:00:00 channel_map:advertising_channels=7 filter_policy:advertising_filter=anyone
0x2007 LE Read Advertising Physical Channel Tx Power < tx_power!!
0x2008 LE Set Advertising Data (le_advertising_data) > data_length:u8(0..31) data:ad31@data_length!!
0x2009 LE Set Scan Response Data > data_length:u8(0..31) data:ad31@data_length!!
0x200A LE Set Advertising Enable (le_advertising_enable) > enable:on_off=on!!
0x200B LE Set Scan Parameters (le_scan_parameters)
  > scan_type:scan_mode=active!! interval:u16(4..0x4000)*0.625ms=0x0010 window:u16(4..0x4000)*0.625ms=0x0010
    own_address_type=public filter_policy:scan_filter=all
0x200C LE Set Scan Enable (le_scan_enable) > enable:on_off=on!! filter_duplicates:on_off=off
0x200D LE Create Connection
  > scan_interval:u16(4..0x4000)*0.625ms=0x0060 scan_window:u16(4..0x4000)*0.625ms=0x0030
    filter_policy:initiator_filter=peer_address peer_address_type:address_type=public peer_address:bd_addr
    own_address_type=public interval_min:u16(6..0x0C80)*1.25ms=0x0018 interval_max:u16(6..0x0C80)*1.25ms=0x0028
    max_latency:u16(0..0x01F3)=0 supervision_timeout:u16(0x0A..0x0C80)*10ms=0x01F4 min_ce_length:u16*0.625ms=0
    max_ce_length:u16*0.625ms=0 ~ LE Connection Complete
0x200E LE Create Connection Cancel
0x200F LE Read Filter Accept List Size < filter_accept_list_size:u8!
0x2010 LE Clear Filter Accept List
0x2011 LE Add Device To Filter Accept List > address_type=public address:bd_addr
0x2012 LE Remove Device From Filter Accept List > address_type=public address:bd_addr
0x2013 LE Connection Update
  > connection_handle interval_min:u16(6..0x0C80)*1.25ms interval_max:u16(6..0x0C80)*1.25ms
    max_latency:u16(0..0x01F3)=0 supervision_timeout:u16(0x0A..0x0C80)*10ms=0x01F4 min_ce_length:u16*0.625ms=0
    max_ce_length:u16*0.625ms=0 ~ LE Connection Update Complete
0x2014 LE Set Host Channel Classification > channel_map:hex5
0x2015 LE Read Channel Map > connection_handle < connection_handle channel_map:hex5!
0x2016 LE Read Remote Features > connection_handle ~ LE Read Remote Features Complete
0x2017 LE Encrypt > key:hex16 plaintext_data:hex16 < encrypted_data:hex16
0x2018 LE Rand < random_number:x64!
0x2019 LE Enable Encryption
  > connection_handle random_number:x64=0 encrypted_diversifier:x16=0 long_term_key:hex16 ~ Encryption Change
0x201A LE Long Term Key Request Reply > connection_handle long_term_key:hex16 < connection_handle
0x201B LE Long Term Key Request Negative Reply > connection_handle < connection_handle
0x201C LE Read Supported States < le_states:x64
0x201D LE Receiver Test > rx_channel:u8(0..0x27)!
0x201E LE Transmitter Test > tx_channel:u8(0..0x27)! test_data_length:u8=37 packet_payload:test_payload=PRBS9
0x201F LE Test End < num_packets:u16!
0x2020 LE Remote Connection Parameter Request Reply
  > connection_handle interval_min:u16(6..0x0C80)*1.25ms interval_max:u16(6..0x0C80)*1.25ms
    max_latency:u16(0..0x01F3)=0 timeout:u16(0x0A..0x0C80)*10ms=0x01F4 min_ce_length:u16*0.625ms=0
    max_ce_length:u16*0.625ms=0 < connection_handle
0x2021 LE Remote Connection Parameter Request Negative Reply > connection_handle reason=0x3B < connection_handle
0x2022 LE Set Data Length
  > connection_handle tx_octets:u16(0x1B..0xFB)=251! tx_time:u16(0x0148..0x4290)*us=2120 < connection_handle
0x2023 LE Read Suggested Default Data Length < max_tx_octets:u16! max_tx_time:u16*us!
0x2024 LE Write Suggested Default Data Length
  > max_tx_octets:u16(0x1B..0xFB)=251! max_tx_time:u16(0x0148..0x4290)*us=2120!
0x2025 LE Read Local P-256 Public Key ~ LE Read Local P-256 Public Key Complete
0x2026 LE Generate DHKey > key_x_coordinate:hex32 key_y_coordinate:hex32 ~ LE Generate DHKey Complete
0x2027 LE Add Device To Resolving List
  > peer_identity_address_type:address_type=public peer_identity_address:bd_addr peer_irk:hex16 local_irk:hex16
0x2028 LE Remove Device From Resolving List
  > peer_identity_address_type:address_type=public peer_identity_address:bd_addr
0x2029 LE Clear Resolving List
0x202A LE Read Resolving List Size < resolving_list_size:u8!
0x202B LE Read Peer Resolvable Address
  > peer_identity_address_type:address_type=public peer_identity_address:bd_addr < peer_resolvable_address:bd_addr
0x202C LE Read Local Resolvable Address
  > peer_identity_address_type:address_type=public peer_identity_address:bd_addr < local_resolvable_address:bd_addr
0x202D LE Set Address Resolution Enable > enable:on_off=on!!
0x202E LE Set Resolvable Private Address Timeout > timeout:u16(1..0x0E10)*s=900!!
0x202F LE Read Maximum Data Length
  < supported_max_tx_octets:u16! supported_max_tx_time:u16*us supported_max_rx_octets:u16! supported_max_rx_time:u16*us
0x2030 LE Read PHY > connection_handle < connection_handle tx_phy:phy! rx_phy:phy!
0x2031 LE Set Default PHY > all_phys=0 tx_phys:phys=7! rx_phys:phys=7!
0x2032 LE Set PHY
  > connection_handle all_phys=0 tx_phys:phys=le_2m! rx_phys:phys=le_2m! phy_options=0 ~ LE PHY Update Complete
0x2033 LE Receiver Test [v2] > rx_channel:u8(0..0x27)! phy=le_1m! modulation_index=standard
0x2034 LE Transmitter Test [v2]
  > tx_channel:u8(0..0x27)! test_data_length:u8=37 packet_payload:test_payload=PRBS9 phy=le_1m!
0x2035 LE Set Advertising Set Random Address > advertising_handle=0 random_address:bd_addr
0x2036 LE Set Extended Advertising Parameters
  > advertising_handle=0 event_properties:advertising_properties=0x0013 primary_interval_min:u24(0x20..)*0.625ms=0x0800
    primary_interval_max:u24(0x20..)*0.625ms=0x0800 primary_channel_map:advertising_channels=7 own_address_type=public
    peer_address_type:address_type=public peer_address:addr=00:00:00:00:00:00 filter_policy:advertising_filter=anyone
    tx_power=127 primary_phy:phy=le_1m secondary_max_skip:u8=0 secondary_phy:phy=le_1m advertising_sid=0
    scan_request_notification_enable:on_off=off < selected_tx_power:tx_power!
0x2037 LE Set Extended Advertising Data
  > advertising_handle=0 operation:data_operation=complete fragment_preference=do_not_fragment data_length:u8(0..251)
    data:ad@data_length!!
0x2038 LE Set Extended Scan Response Data
  > advertising_handle=0 operation:data_operation=complete fragment_preference=do_not_fragment data_length:u8(0..251)
    data:ad@data_length!!
0x2039 LE Set Extended Advertising Enable
  > enable:on_off=on!! num_sets:u8(0..0x3F)
    sets@num_sets{ advertising_handle=0 duration:u16*10ms=0 max_extended_advertising_events:u8=0 }
0x203A LE Read Maximum Advertising Data Length < max_advertising_data_length:u16!
0x203B LE Read Number Of Supported Advertising Sets < num_supported_advertising_sets:u8!
0x203C LE Remove Advertising Set > advertising_handle=0
0x203D LE Clear Advertising Sets
0x203E LE Set Periodic Advertising Parameters
  > advertising_handle=0 interval_min:u16(6..0xFFFF)*1.25ms=0x0320 interval_max:u16(6..0xFFFF)*1.25ms=0x0320
    properties:periodic_properties=0
0x203F LE Set Periodic Advertising Data
  > advertising_handle=0 operation:data_operation=complete data_length:u8(0..252) data:ad@data_length!!
0x2040 LE Set Periodic Advertising Enable > enable:u8(0..3)=1! advertising_handle=0
0x2041 LE Set Extended Scan Parameters
  > own_address_type=public filter_policy:scan_filter=all scanning_phys:phys=le_1m!
    scans^scanning_phys{ scan_type:scan_mode=active!! interval:u16(4..0xFFFF)*0.625ms=0x0010
    window:u16(4..0xFFFF)*0.625ms=0x0010 }
0x2042 LE Set Extended Scan Enable (le_extended_scan_enable)
  > enable:on_off=on!! filter_duplicates:u8(0..2)=0 duration:u16*10ms=0 period:u16*1.28s=0
0x2043 LE Extended Create Connection
  > filter_policy:initiator_filter=peer_address own_address_type=public peer_address_type:address_type=public
    peer_address:bd_addr initiating_phys:phys=le_1m!
    connections^initiating_phys{ scan_interval:u16(4..0xFFFF)*0.625ms=0x0060 scan_window:u16(4..0xFFFF)*0.625ms=0x0030
    interval_min:u16(6..0x0C80)*1.25ms=0x0018 interval_max:u16(6..0x0C80)*1.25ms=0x0028 max_latency:u16(0..0x01F3)=0
    supervision_timeout:u16(0x0A..0x0C80)*10ms=0x01F4 min_ce_length:u16*0.625ms=0 max_ce_length:u16*0.625ms=0 }
  ~ LE Enhanced Connection Complete
0x2044 LE Periodic Advertising Create Sync
  > options:x8=0 advertising_sid=0! advertiser_address_type:address_type=public advertiser_address:bd_addr
    skip:u16(0..0x01F3)=0 sync_timeout:u16(0x0A..0x4000)*10ms=0x01F4 sync_cte_type:no_cte_types=0
  ~ LE Periodic Advertising Sync Established
0x2045 LE Periodic Advertising Create Sync Cancel
0x2046 LE Periodic Advertising Terminate Sync > sync_handle
0x2047 LE Add Device To Periodic Advertiser List
  > advertiser_address_type:address_type=public advertiser_address:bd_addr advertising_sid!
0x2048 LE Remove Device From Periodic Advertiser List
  > advertiser_address_type:address_type=public advertiser_address:bd_addr advertising_sid!
0x2049 LE Clear Periodic Advertiser List
0x204A LE Read Periodic Advertiser List Size < periodic_advertiser_list_size:u8!
0x204B LE Read Transmit Power < min_tx_power:tx_power! max_tx_power:tx_power!
0x204C LE Read RF Path Compensation < rf_tx_path_compensation:i16*0.1dB! rf_rx_path_compensation:i16*0.1dB!
0x204D LE Write RF Path Compensation
  > rf_tx_path_compensation:i16(-1280..1280)*0.1dB! rf_rx_path_compensation:i16(-1280..1280)*0.1dB!
0x204E LE Set Privacy Mode
  > peer_identity_address_type:address_type=public peer_identity_address:bd_addr privacy_mode=device!!
0x204F LE Receiver Test [v3]
  > rx_channel:u8(0..0x27)! phy=le_1m! modulation_index=standard expected_cte_length:u8(0..0x14)*8us=0
    expected_cte_type:cte_type=aoa slot_durations=1_us switching_pattern_length:u8(0..0x4B)
    antenna_ids@switching_pattern_length{ antenna_id:u8 }
0x2050 LE Transmitter Test [v3]
  > tx_channel:u8(0..0x27)! test_data_length:u8=37 packet_payload:test_payload=PRBS9 phy=le_1m!
    cte_length:u8(0..0x14)*8us=0 cte_type=aoa switching_pattern_length:u8(0..0x4B)
    antenna_ids@switching_pattern_length{ antenna_id:u8 }
)";
