#include "platform/sharedcounter.h"

#include <vector>

namespace
{
std::vector<std::unique_ptr<SharedSection>>& keptOpen()
{
    static std::vector<std::unique_ptr<SharedSection>> kept;
    return kept;
}
} // namespace

void SharedSection::keepOpen(std::unique_ptr<SharedSection> section)
{
    if (section)
        keptOpen().push_back(std::move(section));
}
