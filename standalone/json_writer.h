// A small JSON writer for the command's --json output: objects, arrays,
// strings with the escapes JSON requires, and whole numbers.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace cli {

class JsonWriter {
public:
    JsonWriter& beginObject() { return open('{'); }
    JsonWriter& endObject() { return close('}'); }
    JsonWriter& beginArray() { return open('['); }
    JsonWriter& endArray() { return close(']'); }
    // A member's name inside an object; its value follows.
    JsonWriter& key(const std::string& name) {
        separate();
        quoted(name);
        text_ += ':';
        afterKey_ = true;
        return *this;
    }
    JsonWriter& value(const std::string& s) {
        separate();
        quoted(s);
        return *this;
    }
    JsonWriter& value(const char* s) { return value(std::string(s)); }
    JsonWriter& value(bool b) {
        separate();
        text_ += b ? "true" : "false";
        return *this;
    }
    JsonWriter& value(long long n) {
        separate();
        text_ += std::to_string(n);
        return *this;
    }
    JsonWriter& value(int n) { return value(static_cast<long long>(n)); }
    JsonWriter& value(unsigned n) { return value(static_cast<long long>(n)); }
    JsonWriter& value(long n) { return value(static_cast<long long>(n)); }
    template <typename T>
    JsonWriter& member(const std::string& name, const T& v) {
        key(name);
        return value(v);
    }
    const std::string& text() const { return text_; }

private:
    JsonWriter& open(char bracket) {
        separate();
        text_ += bracket;
        first_.push_back(true);
        return *this;
    }
    JsonWriter& close(char bracket) {
        text_ += bracket;
        first_.pop_back();
        return *this;
    }
    // The comma between members or elements; none right after a key.
    void separate() {
        if (afterKey_) {
            afterKey_ = false;
            return;
        }
        if (first_.empty()) return;
        if (!first_.back()) text_ += ',';
        first_.back() = false;
    }
    void quoted(const std::string& s) {
        text_ += '"';
        for (const char c : s) {
            const unsigned char u = static_cast<unsigned char>(c);
            switch (c) {
            case '"': text_ += "\\\""; break;
            case '\\': text_ += "\\\\"; break;
            case '\n': text_ += "\\n"; break;
            case '\r': text_ += "\\r"; break;
            case '\t': text_ += "\\t"; break;
            case '\b': text_ += "\\b"; break;
            case '\f': text_ += "\\f"; break;
            default:
                if (u < 0x20) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\u%04x", u);
                    text_ += escape;
                } else {
                    text_ += c;   // UTF-8 passes through as it is
                }
            }
        }
        text_ += '"';
    }
    std::string text_;
    std::vector<bool> first_;   // per open bracket: nothing written in it yet
    bool afterKey_ = false;
};

}  // namespace cli
