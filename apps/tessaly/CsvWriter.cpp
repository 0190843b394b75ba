#include "CsvWriter.h"

#include <vector>

namespace tessaly::cli {

std::string CsvWriter::Field(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += '"';
    for (const char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    quoted += '"';
    return quoted;
}

void CsvWriter::Row(std::span<const std::string> fields) {
    std::string line;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (i) line += ',';
        line += Field(fields[i]);
    }
    line += "\r\n";
    out_ << line;  // one write per row: a reader of a pipe never sees half a row
    out_.flush();
}

void CsvWriter::Row(std::initializer_list<std::string_view> fields) {
    const std::vector<std::string> texts(fields.begin(), fields.end());
    Row(texts);
}

}  // namespace tessaly::cli
