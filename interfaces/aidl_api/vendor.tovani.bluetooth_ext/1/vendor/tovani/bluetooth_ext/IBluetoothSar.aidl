// Frozen: clients are built against it. What is new goes into the next version.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBluetoothSar {
  void setBluetoothTxPowerCap(in byte cap);
}
