// Rows of comma-separated values as RFC 4180 writes them: a field that holds a comma, a
// double quote, a carriage return or a line feed is enclosed in double quotes, its quotes
// doubled; every row ends with CR LF. Other fields are written as they are.
//
//     CsvWriter csv(out);
//     csv.Row({"file", "status"});        // file,status\r\n
//     csv.Row({"a,b.png", "say \"hi\""}); // "a,b.png","say ""hi"""\r\n
#pragma once

#include <initializer_list>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace tessaly::cli {

class CsvWriter {
public:
    explicit CsvWriter(std::ostream& out) : out_(out) {}

    void Row(std::span<const std::string> fields);
    void Row(std::initializer_list<std::string_view> fields);

    // The field as it is written.
    static std::string Field(std::string_view text);

private:
    std::ostream& out_;
};

}  // namespace tessaly::cli
