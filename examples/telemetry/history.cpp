#include "history.h"

#include <algorithm>
#include <string>
#include <vector>

namespace telemetry
{

void History::add(const Properties& summary)
{
    last_ = summary;
    for (std::size_t i = 0; i < remembered.size(); ++i) {
        values_[i].push_back(summary.number(remembered[i]));
        if (values_[i].size() > historySeconds)
            values_[i].pop_front();
    }
}

Properties History::tell(uint32_t seconds) const
{
    Properties told = last_;
    for (std::size_t i = 0; i < remembered.size(); ++i) {
        const auto count = static_cast<std::ptrdiff_t>(std::min<std::size_t>(seconds, values_[i].size()));
        told.setList((std::string("history.") + remembered[i]).c_str(), {values_[i].end() - count, values_[i].end()});
    }
    return told;
}

} // namespace telemetry
