#pragma once

#include <string>
#include <string_view>
#include <vector>

// Job files are written without ever following a symbolic link, so a link
// planted in the job folder cannot send a job's bytes anywhere else.
namespace safefile
{
enum class Mode {
    Replace,   // a link under the name is removed first; a file there is replaced
    Exclusive, // fails with Taken when anything has the name (a dangling link too)
};
enum class Result { Written, Taken, Failed };
// Writes the pieces one after another; why holds the reason of a failure.
Result write(const std::wstring& path, const std::vector<std::string_view>& pieces, Mode mode,
             std::string* why = nullptr);
// True when anything has this name: a file, a folder, a link (even a dangling one).
bool taken(const std::wstring& path);
bool isLink(const std::wstring& path);
} // namespace safefile
