package vendor.tovani.bluetooth_ext;

/** Digital keys: LMP event registration and time sync. */
@VintfStability
interface IBluetoothCcc {
    /** Asks for the listed LMP events of the device at `address`. EX_UNSUPPORTED_OPERATION where there are none. */
    void registerForLmpEvents(in byte[6] address, in byte[] lmpEventIds);
    void unregisterLmpEvents(in byte[6] address);
}
