// Frozen: clients are built against it. What is new goes into the next version.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBluetoothFinder {
  void sendPrecomputedKeys(in byte[] keys);
  void setPoweredOffMode(in boolean enable);
}
