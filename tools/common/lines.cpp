// Logical lines of the POSIX text formats.
#include "tools/common/lines.h"

namespace nus::tools {

namespace {

// Whether text ends inside a string literal.
bool inside_string(const std::string &text, char escape) {
    bool inside = false;
    for (size_t k = 0; k < text.size(); ++k) {
        if (text[k] == escape) ++k;
        else if (text[k] == '"') inside = !inside;
    }
    return inside;
}

// Whether a line ends in an escape character that is not itself escaped.
bool continues(const std::string &line, char escape) {
    size_t run = 0;
    while (run < line.size() && line[line.size() - 1 - run] == escape) ++run;
    return run % 2 == 1;
}

// A continued line without its comment: glibc's localedef lets a line end in a comment and
// still go on to the next (uk_UA writes `"<U043D><U0434>"; %nd  /`). `inside` is whether the
// line starts inside a string literal.
std::string without_comment(const std::string &line, bool inside, char comment, char escape) {
    for (size_t k = 0; k < line.size(); ++k) {
        if (line[k] == escape) ++k;
        else if (line[k] == '"') inside = !inside;
        else if (line[k] == comment && !inside) return line.substr(0, k);
    }
    return line;
}

} // namespace

std::vector<LogicalLine> logical_lines(const std::string &text, char &comment, char &escape) {
    std::vector<LogicalLine> out;
    std::string current;
    int number = 0, start = 0;
    size_t i = 0;
    while (i <= text.size()) {
        const size_t end = text.find('\n', i);
        std::string line = text.substr(i, end == std::string::npos ? std::string::npos : end - i);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        ++number;
        const size_t first = line.find_first_not_of(" \t");
        const std::string head =
            first == std::string::npos ? "" : line.substr(first, line.find_first_of(" \t", first) - first);
        if (first != std::string::npos && line[first] == comment && !inside_string(current, escape)) {
            // dropped
        } else if (current.empty() && (head == "comment_char" || head == "escape_char" ||
                                        head == "<comment_char>" || head == "<escape_char>")) {
            const size_t v = line.find_first_not_of(" \t", first + head.size());
            if (v != std::string::npos) (head.find("comment") != std::string::npos ? comment : escape) = line[v];
        } else {
            if (current.empty()) start = number;
            if (continues(line, escape)) {
                line.pop_back();
                current += without_comment(line, inside_string(current, escape), comment, escape);
            } else {
                current += line;
                out.push_back({start, std::move(current)});
                current.clear();
            }
        }
        if (end == std::string::npos) break;
        i = end + 1;
    }
    if (!current.empty()) out.push_back({start, std::move(current)});
    return out;
}

} // namespace nus::tools
