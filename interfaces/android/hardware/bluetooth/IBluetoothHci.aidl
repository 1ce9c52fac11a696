package android.hardware.bluetooth;

import android.hardware.bluetooth.IBluetoothHciCallbacks;

/** The platform's HCI: one client at a time sends to the controller, and receives through its callbacks. */
@VintfStability
interface IBluetoothHci {
    /** Ends the client's use of the HAL. */
    void close();
    /** Opens the HAL; the result is told through initializationComplete. */
    void initialize(in IBluetoothHciCallbacks callbacks);
    void sendAclData(in byte[] data);
    void sendHciCommand(in byte[] command);
    void sendIsoData(in byte[] data);
    void sendScoData(in byte[] data);
}
