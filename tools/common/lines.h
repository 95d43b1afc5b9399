// Logical lines of the POSIX text formats (locale sources and charmaps): the comment and
// escape characters, comment lines and line continuation.
#pragma once

#include <string>
#include <vector>

namespace nus::tools {

struct LogicalLine {
    int number;          // the file line the logical line starts on
    std::string text;    // continuation escapes removed, lines joined
};

// Splits a file's text into logical lines. The comment and escape characters start as '#'
// and '\' and change where a directive names them ("comment_char %" in locale sources,
// "<comment_char> %" in charmaps); a directive line is consumed and never continues. A line
// ending in an unescaped escape character continues on the next one. Comment lines are
// dropped, also in the middle of a continued line, unless a string is still open there.
// On return `comment` and `escape` hold the characters in force at the end.
std::vector<LogicalLine> logical_lines(const std::string &text, char &comment, char &escape);

} // namespace nus::tools
