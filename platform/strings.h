// The module's string table and its task-modal message box.
#pragma once

#include <functional>
#include <string>

namespace plat {

// Copies string `id` into buffer (at most size - 1 characters and a terminating
// zero) and returns its length; an unknown id gives the empty text and 0.
int loadString(unsigned id, char* buffer, int size);
std::string loadString(unsigned id);

// Task-modal message box without owner or caption. On Windows the real one;
// elsewhere the text goes to the installed sink (default: one line on stderr).
void messageBox(const char* text);
void showStringMessage(unsigned id);   // loads id into a 128-byte buffer and shows it

using MessageSink = std::function<void(const std::string&)>;
MessageSink setMessageSink(MessageSink sink);   // returns the previous sink

}  // namespace plat
