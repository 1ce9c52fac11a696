package vendor.tovani.bluetooth_ext;

/** Published for the platform to find; it has no operation yet. */
@VintfStability
interface IBluetoothEwp {
}
