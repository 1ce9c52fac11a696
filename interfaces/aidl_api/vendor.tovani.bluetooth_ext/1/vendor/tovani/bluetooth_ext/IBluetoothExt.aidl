// Frozen: clients are built against it. What is new goes into the next version.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBluetoothExt {
  void sendHciCommand(in byte[] command);
}
