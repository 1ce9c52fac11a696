#include "bthal/hci/dictionary/tables.h"

// What this system's service says to its controller, and what the stack may say besides. Their names begin with vnd_.
const char bthal::tool::kVendorCommands[] = R"(
0xFC01 Write BD_ADDR > bd_addr
0xFC18 Update Baud Rate > reserved:u16=0 baud_rate:u32*bit/s!!
0xFC27 Set Sleep Mode > block:hex12=011818010101010000000000
0xFC2E Download Minidriver
0xFC4C Write RAM > address:x32! data:hex@!!
0xFC4E Launch RAM > address:x32=0xFFFFFFFF!
0xFC79 Read Verbose Config And Version (vnd_read_chip_id) < chip_id:u8! target:u8 build_base:u16 build:u16!
0xFD53 LE Get Vendor Capabilities (vnd_le_capabilities)
  < max_advertising_instances:u8! offloaded_resolution:on_off total_scan_results:u16 max_irk_list_size:u8
    filtering_support:on_off max_filter:u8 activity_energy_info:on_off version:x16! total_advertisers_tracked:u16
    extended_scan_support:on_off debug_logging_support:on_off rest:hex@?
0xFD5B Controller Debug Info (vnd_debug_info)
0xFD5E Quality Reports
  > action:quality_action=add!! event_mask:x32! min_interval:u16*ms=0 rest:hex@? < event_mask:x32! rest:hex@?
0xFD62 Powered Off Finder (vnd_finder) > form:finder_form data:hex@? < form:finder_form?
0xFE2F Check OTP > block:hex10=00000000000000000001
0xFE72 Set Download Config > block:hex2=0001
)";
