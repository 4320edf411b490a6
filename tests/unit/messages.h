#pragma once

#include <functional>
#include <string>
#include <vector>

namespace unit {

/// One expected message at LOG_ERR: its number, and its text in which "%m" stands for what errno means.
struct Message {
    int iNumber;
    std::string strText;
};

/// The message of a failed condition.
Message Failed(int iNumber, const std::string& strCondition);

/// Expects an action to log these messages in this order and no others: once with errno clear, in the plain form, and
/// once with errno set, in the form that ends in " (%m)". errno must be the same after the action as before it.
///
/// @param action  is run once for each form; it must not touch errno on its own account.
void ExpectInBothForms(const std::function<void()>& action, const std::vector<Message>& vecExpected,
                       const std::string& strSource = "cronjob");

/// What an action logs with errno clear, each line as CapturedSyslog::Take() has it.
std::vector<std::string> Logged(const std::function<void()>& action);

} // namespace unit
