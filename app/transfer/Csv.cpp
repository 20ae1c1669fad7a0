#include "transfer/Csv.h"

namespace quillet {

std::vector<std::vector<std::string>> readCsv(std::string_view text) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row;
    std::string cell;
    auto endCell = [&] {
        row.push_back(std::move(cell));
        cell.clear();
    };
    auto endRow = [&] {
        endCell();
        if (row.size() != 1 || !row[0].empty()) {
            rows.push_back(std::move(row));
        }
        row.clear();
    };

    bool quoted = false;
    std::size_t i = 0;
    const std::size_t size = text.size();
    while (i < size) {
        const char c = text[i];
        if (quoted) {
            if (c != '"') {
                // Everything up to the next quote is the cell's text, line breaks included; taken
                // as one run so that a long cell costs one copy.
                std::size_t quote = text.find('"', i);
                if (quote == std::string_view::npos) {
                    quote = size;
                }
                cell.append(text.substr(i, quote - i));
                i = quote;
            } else if (i + 1 < size && text[i + 1] == '"') {
                cell += '"';
                i += 2;
            } else {
                // The character after the closing quote is read as outside quotes.
                quoted = false;
                ++i;
            }
            continue;
        }
        switch (c) {
        case '"':
            if (cell.empty()) {
                quoted = true;
            } else {
                cell += '"';
            }
            ++i;
            break;
        case ',':
            endCell();
            ++i;
            break;
        case '\r':
            endRow();
            i += i + 1 < size && text[i + 1] == '\n' ? 2 : 1;
            break;
        case '\n':
            endRow();
            ++i;
            break;
        default: {
            std::size_t special = text.find_first_of(",\"\r\n", i);
            if (special == std::string_view::npos) {
                special = size;
            }
            cell.append(text.substr(i, special - i));
            i = special;
            break;
        }
        }
    }
    endRow();
    return rows;
}

} // namespace quillet
