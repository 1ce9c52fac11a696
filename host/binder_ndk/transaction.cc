#include "transaction.h"

#include <memory>
#include <string>
#include <vector>

#include "connection/connection.h"
#include "connection/wire.h"
#include "object.h"
#include "parcel.h"
#include "process.h"

namespace bthal::binder {
namespace {

binder_status_t FindService(const AParcel& in, AParcel* out) {
  std::string_view name;
  if (!ReadText(in, &name)) return STATUS_BAD_VALUE;
  return AParcel_writeStrongBinder(out, Process::Get().services().Find(std::string(name)).get());
}

// The arguments of a dump: their number, then each as a string.
binder_status_t Dump(LocalObject* object, const AParcel& in, int descriptor) {
  int32_t count = 0;
  if (AParcel_readInt32(&in, &count) != STATUS_OK || count < 0) return STATUS_BAD_VALUE;
  std::vector<std::string> texts;
  for (std::string_view text; count > 0; --count) {
    if (!ReadText(in, &text)) return STATUS_NOT_ENOUGH_DATA;
    texts.emplace_back(text);
  }
  if (object->clazz()->on_dump == nullptr) return STATUS_UNKNOWN_TRANSACTION;
  std::vector<const char*> args;
  args.reserve(texts.size());
  for (const std::string& text : texts) args.push_back(text.c_str());
  return object->clazz()->on_dump(object, descriptor, args.data(), static_cast<uint32_t>(args.size()));
}

binder_status_t CallClass(LocalObject* object, transaction_code_t code, const AParcel& in, AParcel* out) {
  std::string_view interface;
  if (!ReadText(in, &interface) || interface != object->clazz()->descriptor) return STATUS_BAD_TYPE;
  return object->clazz()->on_transact(object, code, &in, out);
}

// Calls the object wherever it lives.
binder_status_t Call(AIBinder* binder, int32_t code, AParcel* in, int descriptor, ParcelPtr* out) {
  if (RemoteObject* remote = binder->AsRemote()) {
    return remote->connection()->Call(remote->id(), code, in, descriptor, out);
  }
  in->position = 0;
  *out = NewParcel();
  return Execute(binder, code, *in, descriptor, out->get());
}

}  // namespace

binder_status_t Execute(AIBinder* object, int32_t code, const AParcel& in, int descriptor, AParcel* out) {
  if (code == kPingCode) return STATUS_OK;
  if (object == nullptr) return code == kFindServiceCode ? FindService(in, out) : STATUS_UNKNOWN_TRANSACTION;
  LocalObject* local = object->AsLocal();
  if (code == kDumpCode) return Dump(local, in, descriptor);
  if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) return STATUS_UNKNOWN_TRANSACTION;
  return CallClass(local, static_cast<transaction_code_t>(code), in, out);
}

}  // namespace bthal::binder

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
  if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
  const AIBinder_Class* clazz = binder->clazz();
  if (clazz == nullptr) return STATUS_INVALID_OPERATION;
  *in = AParcel_create();
  bthal::binder::WriteText(*in, clazz->descriptor);
  return STATUS_OK;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                                  binder_flags_t flags) {
  if (binder == nullptr || in == nullptr || *in == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
  const bthal::binder::ParcelPtr request(*in);
  *in = nullptr;
  *out = nullptr;
  if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) return STATUS_UNKNOWN_TRANSACTION;
  if (flags != 0) return STATUS_BAD_VALUE;
  bthal::binder::ParcelPtr answer;
  binder_status_t status = STATUS_OK;
  if (bthal::binder::KeepInBatch(binder, static_cast<int32_t>(code), *request)) {
    answer = bthal::binder::NewParcel();
    status = AParcel_writeStatusHeader(answer.get(), nullptr);
  } else {
    status = bthal::binder::Call(binder, static_cast<int32_t>(code), request.get(), -1, &answer);
  }
  if (status == STATUS_OK) *out = answer.release();
  return status;
}

binder_status_t AIBinder_ping(AIBinder* binder) {
  if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
  AParcel nothing;
  bthal::binder::ParcelPtr answer;
  return bthal::binder::Call(binder, bthal::binder::kPingCode, &nothing, -1, &answer);
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
  if (binder == nullptr || fd < 0) return binder == nullptr ? STATUS_UNEXPECTED_NULL : STATUS_BAD_VALUE;
  AParcel request;
  AParcel_writeInt32(&request, static_cast<int32_t>(numArgs));
  for (uint32_t i = 0; i < numArgs; ++i) bthal::binder::WriteText(&request, args[i]);
  bthal::binder::ParcelPtr answer;
  return bthal::binder::Call(binder, bthal::binder::kDumpCode, &request, fd, &answer);
}
