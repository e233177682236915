// Host stand-in for <binder/Status.h>: the result of a binder call (an exception code, a
// transport error or a service-specific error, with a message).
#pragma once

#include <cstdint>

#include <utils/Errors.h>
#include <utils/String8.h>

namespace android::binder {

class Status final {
public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_SERVICE_SPECIFIC = -8,
        EX_PARCELABLE = -9,
        EX_HAS_REPLY_HEADER = -128,
        EX_TRANSACTION_FAILED = -129,
    };

    Status() = default;
    static Status ok() { return Status(); }
    static Status fromExceptionCode(int32_t exceptionCode, const char* message = "");
    static Status fromServiceSpecificError(int32_t errorCode, const char* message = "");
    // OK gives ok(); any other status_t an EX_TRANSACTION_FAILED carrying it.
    static Status fromStatusT(status_t status);

    bool isOk() const { return exception_ == EX_NONE; }
    int32_t exceptionCode() const { return exception_; }
    const String8& exceptionMessage() const { return message_; }
    status_t transactionError() const { return exception_ == EX_TRANSACTION_FAILED ? error_ : OK; }
    int32_t serviceSpecificErrorCode() const {
        return exception_ == EX_SERVICE_SPECIFIC ? error_ : 0;
    }
    // "No error", or "Status(<exception>, <error>): '<message>'".
    String8 toString8() const;

private:
    Status(int32_t exception, int32_t error, const char* message);

    int32_t exception_ = EX_NONE;
    int32_t error_ = 0;
    String8 message_;
};

}  // namespace android::binder
