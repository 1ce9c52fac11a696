package vendor.tovani.bluetooth_ext;

/** Lets the controller be found while the device is off. */
@VintfStability
interface IBluetoothFinder {
    /** Adds precomputed keys, 20 bytes each, to those the controller gets when the device shuts down. */
    void sendPrecomputedKeys(in byte[] keys);
    /** Whether the controller stays powered, looking to be found, when the service is told to end. */
    void setPoweredOffMode(in boolean enable);
}
