// The interface as it is being worked on; frozen under a number when it is given out.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBluetoothCcc {
  void registerForLmpEvents(in byte[6] address, in byte[] lmpEventIds);
  void unregisterLmpEvents(in byte[6] address);
}
