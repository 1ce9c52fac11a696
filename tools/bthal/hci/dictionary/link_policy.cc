#include "bthal/hci/dictionary/tables.h"

const char bthal::tool::kLinkPolicy[] = R"(
0x0801 Hold Mode
  > connection_handle max_interval:u16(2..0xFFFE)*0.625ms min_interval:u16(2..0xFF00)*0.625ms ~ Mode Change
0x0803 Sniff Mode
  > connection_handle max_interval:u16(2..0xFFFE)*0.625ms min_interval:u16(2..0xFFFE)*0.625ms
    attempt:u16(1..0x7FFF)*1.25ms timeout:u16(0..0x7FFF)*1.25ms ~ Mode Change
0x0804 Exit Sniff Mode > connection_handle ~ Mode Change
0x0805 Park State
  > connection_handle max_beacon_interval:u16(0x0E..0xFFFE)*0.625ms min_beacon_interval:u16(0x0E..0xFFFE)*0.625ms
  ~ Mode Change
0x0806 Exit Park State > connection_handle ~ Mode Change
0x0807 QoS Setup
  > connection_handle unused:u8=0 service_type=best_effort token_rate:u32 peak_bandwidth:u32 latency:u32*us
    delay_variation:u32*us ~ QoS Setup Complete
0x0809 Role Discovery > connection_handle < connection_handle current_role:role
0x080B Switch Role > bd_addr role=central ~ Role Change
0x080C Read Link Policy Settings > connection_handle < connection_handle link_policy_settings:link_policy!
0x080D Write Link Policy Settings > connection_handle link_policy_settings:link_policy! < connection_handle
0x080E Read Default Link Policy Settings < link_policy_settings:link_policy!
0x080F Write Default Link Policy Settings > link_policy_settings:link_policy!
0x0810 Flow Specification
  > connection_handle unused:u8=0 flow_direction=outgoing service_type=best_effort token_rate:u32
    token_bucket_size:u32 peak_bandwidth:u32 access_latency:u32*us ~ Flow Specification Complete
0x0811 Sniff Subrating
  > connection_handle max_latency:u16(2..0xFFFE)*0.625ms min_remote_timeout:u16(0..0xFFFE)*0.625ms
    min_local_timeout:u16(0..0xFFFE)*0.625ms < connection_handle
)";
