#include "platform/safefile.h"

// The same on every system: the adapters give the stream.
safefile::Result safefile::write(const std::wstring& path,
                                 const std::vector<std::string_view>& pieces, Mode mode,
                                 std::string* why)
{
    Stream s;
    const Result opened = s.open(path, mode, why);
    if (opened != Result::Written)
        return opened;
    bool ok = true;
    for (const std::string_view piece : pieces)
        ok = ok && s.write(piece, why);
    return s.close(ok ? why : nullptr) && ok ? Result::Written : Result::Failed;
}
