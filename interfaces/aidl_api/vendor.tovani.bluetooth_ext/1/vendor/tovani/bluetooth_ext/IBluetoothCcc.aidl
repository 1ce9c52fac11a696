// Frozen: clients are built against it. What is new goes into the next version.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBluetoothCcc {
  void registerForLmpEvents(in byte[6] address, in byte[] lmpEventIds);
  void unregisterLmpEvents(in byte[6] address);
}
