package vendor.tovani.bluetooth_ext;

/** Transmit-power caps. */
@VintfStability
interface IBluetoothSar {
    /** Caps the transmit power of every technology, in dBm. EX_UNSUPPORTED_OPERATION where the controller has no caps. */
    void setBluetoothTxPowerCap(in byte cap);
}
