package android.hardware.bluetooth;

import android.hardware.bluetooth.Status;

/** What the stack receives. Packets carry no H4 type byte. */
@VintfStability
interface IBluetoothHciCallbacks {
    void aclDataReceived(in byte[] data);
    void hciEventReceived(in byte[] event);
    void initializationComplete(in Status status);
    void isoDataReceived(in byte[] data);
    void scoDataReceived(in byte[] data);
}
