#include <binder/Status.h>

namespace android::binder {

Status::Status(int32_t exception, int32_t error, const char* message)
    : exception_(exception), error_(error), message_(message == nullptr ? "" : message) {}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    return Status(exceptionCode, 0, message);
}

Status Status::fromServiceSpecificError(int32_t errorCode, const char* message) {
    return Status(EX_SERVICE_SPECIFIC, errorCode, message);
}

Status Status::fromStatusT(status_t status) {
    return status == OK ? Status() : Status(EX_TRANSACTION_FAILED, status, "");
}

String8 Status::toString8() const {
    if (isOk()) return String8("No error");
    return String8::format("Status(%d, %d): '%s'", exception_, error_, message_.string());
}

}  // namespace android::binder
