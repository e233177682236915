// Host stand-in for libhidl's transport status: android::hardware::Status and Return<T>, the
// result of every HIDL method call. A Return carries either the method's value or a transport
// failure; a failed Return whose status nobody checked aborts the process when destroyed, as on
// the device, so callers must look at isOk() (or withDefault()) before letting it go.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include <utils/Errors.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

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
        EX_HAS_REPLY_HEADER = -128,
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok() { return Status(); }
    static Status fromExceptionCode(int32_t exceptionCode);
    static Status fromExceptionCode(int32_t exceptionCode, const char* message);
    // OK stays OK; any other value becomes EX_TRANSACTION_FAILED carrying that error code.
    static Status fromStatusT(status_t status);

    Status() = default;

    bool isOk() const { return exception_ == EX_NONE; }
    int32_t exceptionCode() const { return exception_; }
    const char* exceptionMessage() const { return message_.c_str(); }
    // The error code for EX_TRANSACTION_FAILED, otherwise OK.
    status_t transactionError() const {
        return exception_ == EX_TRANSACTION_FAILED ? errorCode_ : OK;
    }
    // "No error", or "Status(EX_...): '<message>'"; transaction failures put the error code's
    // name before the message: "Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '".
    std::string description() const;

private:
    int32_t exception_ = EX_NONE;
    status_t errorCode_ = OK;
    std::string message_;
};

std::ostream& operator<<(std::ostream& stream, const Status& status);

namespace details {

// Aborts with `message` followed by the status text (never returns).
[[noreturn]] void abortWithStatus(const char* message, const Status& status);

// The status part of every Return: whether the call went through, and whether anyone looked.
class return_status {
public:
    return_status() = default;
    return_status(const Status& status) : status_(status) {}  // NOLINT(implicit)
    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    return_status(return_status&& other) noexcept { *this = std::move(other); }
    return_status& operator=(return_status&& other) noexcept;
    // Aborts when the status is a failure that was never checked.
    ~return_status();

    bool isOk() const {
        checked_ = true;
        return status_.isOk();
    }
    bool isOkUnchecked() const { return status_.isOk(); }
    bool isDeadObject() const {
        return status_.exceptionCode() == Status::EX_TRANSACTION_FAILED &&
               status_.transactionError() == DEAD_OBJECT;
    }
    std::string description() const { return status_.description(); }

protected:
    // Aborts with "Attempted to retrieve value from failed HIDL call: ..." when not OK.
    void assertOk() const;

private:
    Status status_;
    mutable bool checked_ = false;
};

}  // namespace details

// A method's value, or the transport failure that prevented it. Move-only.
template <typename T>
class Return : public details::return_status {
public:
    Return(T value) : details::return_status(), value_(std::move(value)) {}  // NOLINT(implicit)
    Return(Status status) : details::return_status(status), value_() {}      // NOLINT(implicit)
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;

    T withDefault(T fallback) { return isOk() ? value_ : fallback; }
    operator T() const {  // NOLINT(implicit): aborts on a failed call
        assertOk();
        return value_;
    }

private:
    T value_;
};

template <typename T>
class Return<sp<T>> : public details::return_status {
public:
    Return(sp<T> value) : details::return_status(), value_(std::move(value)) {}  // NOLINT
    Return(T* value) : details::return_status(), value_(value) {}                // NOLINT(implicit)
    template <typename U>
    Return(const sp<U>& value) : details::return_status(), value_(value) {}  // NOLINT(implicit)
    Return(Status status) : details::return_status(status) {}                // NOLINT(implicit)
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;

    sp<T> withDefault(sp<T> fallback) { return isOk() ? value_ : fallback; }
    operator sp<T>() const {  // NOLINT(implicit): aborts on a failed call
        assertOk();
        return value_;
    }

private:
    sp<T> value_;
};

template <>
class Return<void> : public details::return_status {
public:
    Return() : details::return_status() {}
    Return(const Status& status) : details::return_status(status) {}  // NOLINT(implicit)
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;
};

inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
