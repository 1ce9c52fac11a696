package android.hardware.bluetooth;

@VintfStability
@Backing(type="int")
enum Status {
    SUCCESS,
    ALREADY_INITIALIZED,
    UNABLE_TO_OPEN_INTERFACE,
    HARDWARE_INITIALIZATION_ERROR,
    TRANSPORT_ERROR,
    UNKNOWN,
}
