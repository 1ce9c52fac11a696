// Frozen: clients are built against it. What is new goes into the next version.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBTChannelAvoidance {
  void setBluetoothChannelStatus(in byte[10] channelMap);
}
