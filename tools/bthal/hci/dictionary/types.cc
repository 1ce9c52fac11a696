#include "bthal/hci/dictionary/tables.h"

const char bthal::tool::kTypes[] = R"(
# Used everywhere
opcode x16
on_off u8: 0 off, 1 on
connection_handle x16(0..0x0EFF)!
bd_addr addr!!
role u8!!: 0 central, 1 peripheral
rssi i8*dBm!!: 127 not available
tx_power i8*dBm: 127 not available
company x16
data_path_direction u8: 0 input, 1 output
channel_map hex10
coding_format u8: 0 u-law, 1 A-law, 2 CVSD, 3 transparent, 4 linear PCM, 5 mSBC, 6 LC3, 7 G.729A, 0xFF vendor specific
data_path u8: 0 HCI, 0xFF audio test mode
codec_transports x8 bits: 0 BR/EDR ACL, 1 BR/EDR SCO and eSCO, 2 LE CIS, 3 LE BIS
codec_transport u8: 0 BR/EDR ACL, 1 BR/EDR SCO or eSCO, 2 LE CIS, 3 LE BIS
advertising_type x8: 0x01 flags, 0x02 some 16-bit services, 0x03 16-bit services, 0x04 some 32-bit services,
  0x05 32-bit services, 0x06 some 128-bit services, 0x07 128-bit services, 0x08 short name, 0x09 name, 0x0A TX power,
  0x0D class of device, 0x0E pairing hash C-192, 0x0F pairing randomizer R-192, 0x10 device id or TK value,
  0x11 security manager flags, 0x12 connection interval range, 0x14 solicited 16-bit services,
  0x15 solicited 128-bit services, 0x16 16-bit service data, 0x17 public target address, 0x18 random target address,
  0x19 appearance, 0x1A advertising interval, 0x1B device address, 0x1C role, 0x1D pairing hash C-256,
  0x1E pairing randomizer R-256, 0x1F solicited 32-bit services, 0x20 32-bit service data, 0x21 128-bit service data,
  0x22 confirmation value, 0x23 random value, 0x24 URI, 0x25 indoor positioning, 0x26 transport discovery data,
  0x27 supported features, 0x28 channel map update, 0x29 PB-ADV, 0x2A mesh message, 0x2B mesh beacon, 0x2C BIGInfo,
  0x2D broadcast code, 0x2E resolvable set identifier, 0x2F long advertising interval, 0x30 broadcast name,
  0x31 encrypted data, 0x32 periodic response timing, 0x34 electronic shelf label, 0x3D 3D information,
  0xFF manufacturer data

# BR/EDR
lap x24(0x9E8B00..0x9E8B3F)
class_of_device x24
clock_offset x16
link_type u8!!: 0 SCO, 1 ACL, 2 eSCO
page_scan_repetition_mode u8: 0 R0, 1 R1, 2 R2
encryption_enabled u8: 0 off, 1 on, 2 on with AES-CCM
key_flag u8: 0 semi-permanent, 1 temporary
link_key_type u8: 0 combination, 1 local unit, 2 remote unit, 3 debug combination, 4 unauthenticated P-192,
  5 authenticated P-192, 6 changed combination, 7 unauthenticated P-256, 8 authenticated P-256
io_capability u8: 0 display only, 1 display yes no, 2 keyboard only, 3 no input no output
oob_data_present u8: 0 none, 1 P-192, 2 P-256, 3 both
authentication_requirements u8: 0 no MITM no bonding, 1 MITM no bonding, 2 no MITM dedicated bonding,
  3 MITM dedicated bonding, 4 no MITM general bonding, 5 MITM general bonding
keypress u8: 0 entry started, 1 digit entered, 2 digit erased, 3 cleared, 4 entry completed
pin_type u8: 0 variable, 1 fixed
acl_packet_type x16 bits: 1 no 2-DH1, 2 no 3-DH1, 3 DM1, 4 DH1, 8 no 2-DH3, 9 no 3-DH3, 10 DM3, 11 DH3, 12 no 2-DH5,
  13 no 3-DH5, 14 DM5, 15 DH5
sco_packet_type x16 bits: 5 HV1, 6 HV2, 7 HV3
esco_packet_type x16 bits: 0 HV1, 1 HV2, 2 HV3, 3 EV3, 4 EV4, 5 EV5, 6 no 2-EV3, 7 no 3-EV3, 8 no 2-EV5, 9 no 3-EV5
voice_setting x16(0..0x3FF)
retransmission_effort u8: 0 none, 1 for power, 2 for link quality, 0xFF do not care
pcm_data_format u8: 0 none, 1 one's complement, 2 two's complement, 3 sign magnitude, 4 unsigned
air_mode u8: 0 u-law, 1 A-law, 2 CVSD, 3 transparent
mode u8!!: 0 active, 1 hold, 2 sniff, 3 park
service_type u8: 0 no traffic, 1 best effort, 2 guaranteed
flow_direction u8: 0 outgoing, 1 incoming
link_policy x16 bits: 0 role switch, 1 hold, 2 sniff, 3 park
scan_enable u8: 0 off, 1 inquiry, 2 page, 3 inquiry and page
scan_type u8: 0 standard, 1 interlaced
inquiry_mode u8: 0 standard, 1 with RSSI, 2 with RSSI or extended
filter_type u8: 0 clear all, 1 inquiry result, 2 connection setup
hold_mode_activity x8 bits: 0 suspend page scan, 1 suspend inquiry scan, 2 suspend periodic inquiries
power_level u8: 0 current, 1 maximum
host_flow_control u8: 0 off, 1 ACL, 2 synchronous, 3 both
which_clock u8: 0 local, 1 piconet
loopback_mode u8!!: 0 none, 1 local, 2 remote
version u8: 0 1.0b, 1 1.1, 2 1.2, 3 2.0, 4 2.1, 5 3.0, 6 4.0, 7 4.1, 8 4.2, 9 5.0, 10 5.1, 11 5.2, 12 5.3, 13 5.4,
  14 6.0
lmp_features x64 bits: 0 3 slot packets, 1 5 slot packets, 2 encryption, 3 slot offset, 4 timing accuracy,
  5 role switch, 6 hold mode, 7 sniff mode, 9 power control requests, 10 channel quality driven data rate, 11 SCO link,
  12 HV2 packets, 13 HV3 packets, 14 u-law, 15 A-law, 16 CVSD, 17 paging parameter negotiation, 18 power control,
  19 transparent synchronous data, 23 broadcast encryption, 25 EDR ACL 2 Mb/s, 26 EDR ACL 3 Mb/s,
  27 enhanced inquiry scan, 28 interlaced inquiry scan, 29 interlaced page scan, 30 RSSI with inquiry results,
  31 EV3 packets, 32 EV4 packets, 33 EV5 packets, 35 AFH capable peripheral, 36 AFH classification peripheral,
  37 no BR/EDR, 38 LE, 39 3 slot EDR packets, 40 5 slot EDR packets, 41 sniff subrating, 42 pause encryption,
  43 AFH capable central, 44 AFH classification central, 45 EDR eSCO 2 Mb/s, 46 EDR eSCO 3 Mb/s,
  47 3 slot EDR eSCO packets, 48 extended inquiry response, 49 LE and BR/EDR at once, 51 secure simple pairing,
  52 encapsulated PDU, 53 erroneous data reporting, 54 non-flushable packets, 56 supervision timeout changed event,
  57 variable inquiry TX power, 58 enhanced power control, 63 extended features

# LE
address_type u8: 0 public, 1 random, 2 public identity, 3 random identity, 0xFE unresolved random, 0xFF anonymous
own_address_type u8: 0 public, 1 random, 2 resolvable or public, 3 resolvable or random
advertising_handle u8(0..0xEF)!
advertising_sid u8(0..0x0F)
sync_handle x16(0..0x0EFF)!
big_handle u8(0..0xEF)!
cig_id u8(0..0xEF)!
advertising_event u8: 0 ADV_IND, 1 ADV_DIRECT_IND high duty cycle, 2 ADV_SCAN_IND, 3 ADV_NONCONN_IND,
  4 ADV_DIRECT_IND low duty cycle
advertising_report u8: 0 ADV_IND, 1 ADV_DIRECT_IND, 2 ADV_SCAN_IND, 3 ADV_NONCONN_IND, 4 SCAN_RSP
extended_report x16 bits: 0 connectable, 1 scannable, 2 directed, 3 scan response, 4 legacy, 5 more to come, 6
    truncated
advertising_properties x16 bits: 0 connectable, 1 scannable, 2 directed, 3 high duty cycle, 4 legacy, 5 anonymous,
  6 include TX power, 7 use decision PDUs, 8 include AdvA, 9 include ADI
periodic_properties x16 bits: 6 include TX power
advertising_channels x8(1..7) bits: 0 channel 37, 1 channel 38, 2 channel 39
advertising_filter u8: 0 anyone, 1 scan from accept list, 2 connect from accept list, 3 both from accept list
scan_filter u8: 0 all, 1 accept list, 2 all and unresolved directed, 3 accept list and unresolved directed
initiator_filter u8: 0 peer address, 1 accept list
scan_mode u8: 0 passive, 1 active
phy u8: 0 none, 1 LE 1M, 2 LE 2M, 3 LE Coded, 4 LE Coded S=2
phys x8 bits: 0 LE 1M, 1 LE 2M, 2 LE Coded
all_phys x8 bits: 0 no TX preference, 1 no RX preference
phy_options x16: 0 no preference, 1 S=2, 2 S=8
phy_coding u8: 0 no preference, 1 prefer S=2, 2 prefer S=8, 3 require S=2, 4 require S=8
clock_accuracy u8: 0 500 ppm, 1 250 ppm, 2 150 ppm, 3 100 ppm, 4 75 ppm, 5 50 ppm, 6 30 ppm, 7 20 ppm
data_operation u8: 0 intermediate fragment, 1 first fragment, 2 last fragment, 3 complete, 4 unchanged
fragment_preference u8: 0 may fragment, 1 do not fragment
data_status u8: 0 complete, 1 more to come, 2 truncated, 0xFF reception failed
privacy_mode u8: 0 network, 1 device
cte_type u8: 0 AoA, 1 AoD 1 us, 2 AoD 2 us, 0xFF none
cte_types x8 bits: 0 AoA, 1 AoD 1 us, 2 AoD 2 us
no_cte_types x8 bits: 0 no AoA, 1 no AoD 1 us, 2 no AoD 2 us, 3 no type 3, 4 no CTE
slot_durations u8: 1 1 us, 2 2 us
iq_status u8: 0 CRC correct, 1 CRC wrong, 2 CRC wrong and counter guessed, 0xFF insufficient resources
test_payload u8: 0 PRBS9, 1 11110000, 2 10101010, 3 PRBS15, 4 11111111, 5 00000000, 6 00001111, 7 01010101
modulation_index u8: 0 standard, 1 stable
transfer_mode u8: 0 ignore, 1 events without reports, 2 events with reports, 3 events with filtered reports
packing u8: 0 sequential, 1 interleaved
framing u8: 0 unframed, 1 framed, 2 framed unsegmented
iso_payload u8: 0 zero length, 1 variable length, 2 maximum length
path_loss_zone u8: 0 low, 1 middle, 2 high
power_reason u8: 0 local changed, 1 remote changed, 2 read remote completed
power_flags x8 bits: 0 at minimum, 1 at maximum
cs_roles x8 bits: 0 initiator, 1 reflector
cs_role u8: 0 initiator, 1 reflector
cs_done u8: 0 complete, 1 more to come, 15 aborted
le_features x64 bits: 0 encryption, 1 connection parameter request, 2 extended reject, 3 peripheral feature exchange,
  4 ping, 5 data length extension, 6 privacy, 7 extended scanner filters, 8 2M PHY, 9 stable modulation index TX,
  10 stable modulation index RX, 11 coded PHY, 12 extended advertising, 13 periodic advertising,
  14 channel selection algorithm 2, 15 power class 1, 16 minimum used channels, 17 connection CTE request,
  18 connection CTE response, 19 connectionless CTE TX, 20 connectionless CTE RX, 21 antenna switching AoD,
  22 antenna switching AoA, 23 receiving CTE, 24 PAST sender, 25 PAST recipient, 26 sleep clock accuracy updates,
  27 remote public key validation, 28 CIS central, 29 CIS peripheral, 30 isochronous broadcaster,
  31 synchronized receiver, 32 isochronous host support, 33 power control request, 34 power change indication,
  35 path loss monitoring, 36 periodic ADI, 37 connection subrating, 38 connection subrating host support,
  39 channel classification, 40 coding selection, 41 coding selection host support, 43 PAwR advertiser, 44 PAwR scanner

# This system's controller
quality_report u8: 1 monitor, 2 approaching link supervision timeout, 3 A2DP choppy, 4 SCO choppy,
  5 root inflammation, 6 energy, 7 connect fail, 16 vendor, 19 controller memory fragment,
  20 sensor-hub memory fragment, 32 vendor trace
quality_action u8: 0 add, 1 delete, 2 clear
finder_form u8!!: 1 keys, 2 start
)";
