// Frozen: clients are built against it. What is new goes into the next version.
package vendor.tovani.bluetooth_ext;
@VintfStability
interface IBluetoothEwp {
}
