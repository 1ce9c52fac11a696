package vendor.tovani.bluetooth_ext;

/** Tells the controller which channels to avoid. */
@VintfStability
interface IBTChannelAvoidance {
    /**
     * Sets the host channel classification, bit n of the map for channel n. Service-specific error -22 while Bluetooth
     * is off.
     */
    void setBluetoothChannelStatus(in byte[10] channelMap);
}
