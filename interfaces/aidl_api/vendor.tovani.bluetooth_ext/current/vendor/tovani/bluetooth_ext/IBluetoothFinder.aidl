// The interface as it is being worked on; frozen under a number when it is given out.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBluetoothFinder {
  void sendPrecomputedKeys(in byte[] keys);
  void setPoweredOffMode(in boolean enable);
}
