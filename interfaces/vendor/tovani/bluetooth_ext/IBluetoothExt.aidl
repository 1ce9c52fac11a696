package vendor.tovani.bluetooth_ext;

/** HCI command injection. */
@VintfStability
interface IBluetoothExt {
    /** Sends one HCI command (no H4 type byte). EX_UNSUPPORTED_OPERATION where injection is not offered. */
    void sendHciCommand(in byte[] command);
}
