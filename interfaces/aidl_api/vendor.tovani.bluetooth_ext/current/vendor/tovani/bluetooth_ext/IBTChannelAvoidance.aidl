// The interface as it is being worked on; frozen under a number when it is given out.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBTChannelAvoidance {
  void setBluetoothChannelStatus(in byte[10] channelMap);
}
