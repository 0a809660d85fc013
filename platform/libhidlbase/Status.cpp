// SPDX-License-Identifier: Apache-2.0
#include "hidl/Status.h"

#include <cstring>
#include <utility>

namespace android {
namespace hardware {

namespace {

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
        default:
            return std::to_string(exception);
    }
}

std::string transactionErrorName(status_t error) {
    switch (error) {
        case DEAD_OBJECT:
            return "DEAD_OBJECT";
        case FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        case UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case BAD_TYPE:
            return "BAD_TYPE";
        case NOT_ENOUGH_DATA:
            return "NOT_ENOUGH_DATA";
        default:
            return std::string(strerror(-error)) + " (" + std::to_string(error) + ")";
    }
}

}  // namespace

Status::Status(int32_t exceptionCode, status_t transactionError, std::string message)
    : mException(exceptionCode),
      mTransactionError(transactionError),
      mMessage(std::move(message)) {}

Status Status::ok() {
    return Status();
}

Status Status::fromExceptionCode(int32_t exceptionCode) {
    return fromExceptionCode(exceptionCode, "");
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    const bool transactionFailed = exceptionCode == EX_TRANSACTION_FAILED;
    return Status(exceptionCode, transactionFailed ? FAILED_TRANSACTION : OK, message);
}

Status Status::fromStatusT(status_t status) {
    if (status == OK) return ok();
    return Status(EX_TRANSACTION_FAILED, status, "");
}

void Status::setException(int32_t exceptionCode, const char* message) {
    *this = fromExceptionCode(exceptionCode, message);
}

void Status::setFromStatusT(status_t status) {
    *this = fromStatusT(status);
}

status_t Status::transactionError() const {
    return mException == EX_TRANSACTION_FAILED ? mTransactionError : OK;
}

std::string Status::description() const {
    if (isOk()) return "No error";
    std::string text = "Status(" + exceptionName(mException) + "): '";
    if (mException == EX_TRANSACTION_FAILED) {
        text += transactionErrorName(mTransactionError) + ": ";
    }
    return text + mMessage + "'";
}

std::ostream& operator<<(std::ostream& stream, const Status& status) {
    return stream << status.description();
}

namespace details {

return_status::~return_status() {
    checkBeforeLoss();
}

return_status::return_status(return_status&& other) noexcept {
    *this = std::move(other);
}

return_status& return_status::operator=(return_status&& other) noexcept {
    if (this == &other) return *this;
    checkBeforeLoss();
    mStatus = std::move(other.mStatus);
    mChecked = other.mChecked;
    other.mStatus = Status::ok();
    return *this;
}

void return_status::assertOk() const {
    if (isOk()) return;
    logAlwaysFatal(("Failed HIDL return status: " + description()).c_str());
}

bool return_status::isOk() const {
    mChecked = true;
    return mStatus.isOk();
}

bool return_status::isDeadObject() const {
    if (mStatus.transactionError() != DEAD_OBJECT) return false;
    mChecked = true;
    return true;
}

void return_status::onValueRetrieval() const {
    if (isOk()) return;
    logAlwaysFatal(("Attempted to retrieve value from failed HIDL call: " + description()).c_str());
}

void return_status::checkBeforeLoss() const {
    if (mChecked || mStatus.isOk()) return;
    logAlwaysFatal(("Failed HIDL return status not checked: " + description()).c_str());
}

}  // namespace details
}  // namespace hardware
}  // namespace android
