#include <android/binder_status.h>

#include <string.h>

#include <string>

struct AStatus {
  binder_exception_t exception = EX_NONE;
  int32_t service_specific = 0;           // with EX_SERVICE_SPECIFIC
  binder_status_t transport = STATUS_OK;  // with EX_TRANSACTION_FAILED
  std::string message;
};

namespace {

const char* ExceptionName(binder_exception_t exception) {
  switch (exception) {
    case EX_NONE:
      return "EX_NONE";
    case EX_SECURITY:
      return "EX_SECURITY";
    case EX_BAD_PARCELABLE:
      return "EX_BAD_PARCELABLE";
    case EX_ILLEGAL_ARGUMENT:
      return "EX_ILLEGAL_ARGUMENT";
    case EX_NULL_POINTER:
      return "EX_NULL_POINTER";
    case EX_ILLEGAL_STATE:
      return "EX_ILLEGAL_STATE";
    case EX_NETWORK_MAIN_THREAD:
      return "EX_NETWORK_MAIN_THREAD";
    case EX_UNSUPPORTED_OPERATION:
      return "EX_UNSUPPORTED_OPERATION";
    case EX_SERVICE_SPECIFIC:
      return "EX_SERVICE_SPECIFIC";
    case EX_PARCELABLE:
      return "EX_PARCELABLE";
    case EX_TRANSACTION_FAILED:
      return "EX_TRANSACTION_FAILED";
    default:
      return "unknown exception";
  }
}

const char* TransportName(binder_status_t status) {
  switch (status) {
    case STATUS_OK:
      return "OK";
    case STATUS_UNKNOWN_ERROR:
      return "UNKNOWN_ERROR";
    case STATUS_BAD_TYPE:
      return "BAD_TYPE";
    case STATUS_DEAD_OBJECT:
      return "DEAD_OBJECT";
    case STATUS_FAILED_TRANSACTION:
      return "FAILED_TRANSACTION";
    case STATUS_UNKNOWN_TRANSACTION:
      return "UNKNOWN_TRANSACTION";
    case STATUS_FDS_NOT_ALLOWED:
      return "FDS_NOT_ALLOWED";
    case STATUS_UNEXPECTED_NULL:
      return "UNEXPECTED_NULL";
    default:
      return status < 0 && status > -4096 ? strerrordesc_np(-status) : nullptr;
  }
}

}  // namespace

// One for all: nothing in it can be changed, and every good call returns one.
AStatus* AStatus_newOk() {
  static AStatus& ok = *new AStatus;
  return &ok;
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
  return AStatus_fromExceptionCodeWithMessage(exception, "");
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
  const bool known = exception <= EX_NONE && exception >= EX_PARCELABLE && exception != EX_SERVICE_SPECIFIC;
  if (!known) return new AStatus{EX_TRANSACTION_FAILED, 0, STATUS_UNKNOWN_ERROR, message};
  return new AStatus{exception, 0, STATUS_OK, message};
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
  return AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, "");
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
  return new AStatus{EX_SERVICE_SPECIFIC, serviceSpecific, STATUS_OK, message};
}

AStatus* AStatus_fromStatus(binder_status_t status) {
  return status == STATUS_OK ? AStatus_newOk() : new AStatus{EX_TRANSACTION_FAILED, 0, status, ""};
}

bool AStatus_isOk(const AStatus* status) { return status->exception == EX_NONE; }
binder_exception_t AStatus_getExceptionCode(const AStatus* status) { return status->exception; }
int32_t AStatus_getServiceSpecificError(const AStatus* status) { return status->service_specific; }
binder_status_t AStatus_getStatus(const AStatus* status) { return status->transport; }
const char* AStatus_getMessage(const AStatus* status) { return status->message.c_str(); }

const char* AStatus_getDescription(const AStatus* status) {
  std::string text = "Status(" + std::to_string(status->exception) + ", " + ExceptionName(status->exception) + "): '";
  if (status->exception == EX_SERVICE_SPECIFIC) text += std::to_string(status->service_specific) + ": ";
  if (status->exception == EX_TRANSACTION_FAILED) {
    const char* name = TransportName(status->transport);
    text += name == nullptr ? std::to_string(status->transport) : name;
    text += ": ";
  }
  text += status->message + "'";
  return strdup(status->exception == EX_NONE ? "No error" : text.c_str());
}

void AStatus_deleteDescription(const char* description) { free(const_cast<char*>(description)); }
void AStatus_delete(AStatus* status) {
  if (status != AStatus_newOk()) delete status;
}
