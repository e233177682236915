#include "hidl/Status.h"

#include <android/log.h>

#include <sstream>

namespace android {
namespace hardware {
namespace {

constexpr const char kLogTag[] = "HidlStatus";

std::string exceptionName(int32_t exception) {
    switch (exception) {
        case Status::EX_NONE:
            return "EX_NONE";
        case Status::EX_SECURITY:
            return "EX_SECURITY";
        case Status::EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case Status::EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case Status::EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case Status::EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case Status::EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case Status::EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case Status::EX_HAS_REPLY_HEADER:
            return "EX_HAS_REPLY_HEADER";
        case Status::EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
    }
    return "EX_UNKNOWN(" + std::to_string(exception) + ")";
}

// libutils declares statusToString() but the host library does not export it.
std::string errorName(status_t error) {
    switch (error) {
        case OK:
            return "OK";
        case UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case NO_MEMORY:
            return "NO_MEMORY";
        case INVALID_OPERATION:
            return "INVALID_OPERATION";
        case BAD_VALUE:
            return "BAD_VALUE";
        case BAD_TYPE:
            return "BAD_TYPE";
        case NAME_NOT_FOUND:
            return "NAME_NOT_FOUND";
        case PERMISSION_DENIED:
            return "PERMISSION_DENIED";
        case NO_INIT:
            return "NO_INIT";
        case ALREADY_EXISTS:
            return "ALREADY_EXISTS";
        case DEAD_OBJECT:
            return "DEAD_OBJECT";
        case FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case BAD_INDEX:
            return "BAD_INDEX";
        case NOT_ENOUGH_DATA:
            return "NOT_ENOUGH_DATA";
        case WOULD_BLOCK:
            return "WOULD_BLOCK";
        case TIMED_OUT:
            return "TIMED_OUT";
        case UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        case FDS_NOT_ALLOWED:
            return "FDS_NOT_ALLOWED";
        case UNEXPECTED_NULL:
            return "UNEXPECTED_NULL";
    }
    return std::to_string(error);
}

}  // namespace

Status Status::fromExceptionCode(int32_t exceptionCode) {
    Status status;
    status.exception_ = exceptionCode;
    if (exceptionCode == EX_TRANSACTION_FAILED) status.errorCode_ = FAILED_TRANSACTION;
    return status;
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    Status status = fromExceptionCode(exceptionCode);
    status.message_ = message == nullptr ? "" : message;
    return status;
}

Status Status::fromStatusT(status_t error) {
    Status status;
    if (error != OK) {
        status.exception_ = EX_TRANSACTION_FAILED;
        status.errorCode_ = error;
    }
    return status;
}

std::string Status::description() const {
    std::ostringstream text;
    text << *this;
    return text.str();
}

std::ostream& operator<<(std::ostream& stream, const Status& status) {
    if (status.exceptionCode() == Status::EX_NONE) return stream << "No error";
    stream << "Status(" << exceptionName(status.exceptionCode()) << "): '";
    if (status.exceptionCode() == Status::EX_TRANSACTION_FAILED) {
        stream << errorName(status.transactionError()) << ": ";
    }
    return stream << status.exceptionMessage() << "'";
}

namespace details {

void abortWithStatus(const char* message, const Status& status) {
    __android_log_assert(nullptr, kLogTag, "%s%s", message, status.description().c_str());
}

return_status& return_status::operator=(return_status&& other) noexcept {
    if (!checked_ && !status_.isOk()) {
        abortWithStatus("Failed HIDL return status not checked: ", status_);
    }
    status_ = std::move(other.status_);
    checked_ = other.checked_;
    other.status_ = Status::ok();
    other.checked_ = true;
    return *this;
}

return_status::~return_status() {
    if (!checked_ && !status_.isOk()) {
        abortWithStatus("Failed HIDL return status not checked: ", status_);
    }
}

void return_status::assertOk() const {
    checked_ = true;
    if (!status_.isOk()) {
        abortWithStatus("Attempted to retrieve value from failed HIDL call: ", status_);
    }
}

}  // namespace details
}  // namespace hardware
}  // namespace android
