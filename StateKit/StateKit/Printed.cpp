#include "StateKit/Printed.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace PrintDetail {

std::string plainName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> whole(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                       std::free);
    if (!whole) return type.name();
    const std::string_view name = whole.get();
    std::string plain;
    int depth = 0;  // within <> or (), as in the name of a type that is local to a function
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (c == '<' || c == '(') {
            ++depth;
        } else if (c == '>' || c == ')') {
            --depth;
        } else if (depth == 0 && name.substr(i, 2) == "::") {
            plain.clear();
            ++i;
        } else if (depth == 0) {
            plain += c;
        }
    }
    return plain;
}

void appendQuoted(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789ABCDEF";
    out += '"';
    std::size_t plainFrom = 0;  // most texts have nothing to escape and are appended whole
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\' && c != 0x7F) continue;
        out.append(text.substr(plainFrom, i - plainFrom));
        plainFrom = i + 1;
        out += '\\';
        switch (c) {
            case '"':
            case '\\': out += static_cast<char>(c); break;
            case '\n': out += 'n'; break;
            case '\r': out += 'r'; break;
            case '\t': out += 't'; break;
            default:
                out += "u{";
                if (c >= 0x10) out += hex[c >> 4];
                out += hex[c & 15];
                out += '}';
        }
    }
    out.append(text.substr(plainFrom));
    out += '"';
}

}  // namespace PrintDetail
