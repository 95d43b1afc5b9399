// The names of a local calendar from ICU, for nus-localedef --calendar (calendar.cpp).
#pragma once

#include "tools/localedef/compile.h"

#include <optional>
#include <string>

namespace nus::tools {

// The month and day names of `calendar` ("hebrew" or "islamic") in the language of
// `locale_name` (a source name such as he_IL), with the calendar's number; a message when ICU
// cannot give them.
std::optional<std::string> calendar_names(const std::string &calendar,
                                          const std::string &locale_name, CalendarNames &out);

} // namespace nus::tools
