// Processes are killed at random moments while others go on; what is promised to the others is looked at each time.
#include "campaign/campaign.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

namespace
{

struct Family {
    const char* name;
    std::string (*kill)(campaign::Random& random);
};

constexpr Family families[] = {
    {"fifo", campaign::killAtFifo},     {"ring", campaign::killAtRing}, {"channel", campaign::killAtChannel},
    {"region", campaign::killAtRegion}, {"log", campaign::killAtLog},
};

/// @return whether every promise held
bool run(const Family& family, unsigned long kills, uint64_t seed)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    std::map<std::string, unsigned long> outcomes;
    unsigned long breaches = 0;
    for (unsigned long i = 0; i < kills; ++i) {
        campaign::Random random(seed + i);
        try {
            ++outcomes[family.kill(random)];
        } catch (const campaign::Breach& breach) {
            ++breaches;
            fprintf(stderr, "%s, seed %llu: %s\n", family.name, static_cast<unsigned long long>(seed + i),
                    breach.what.c_str());
        }
    }
    if (breaches != 0)
        outcomes["BREACHES"] = breaches;
    const std::chrono::duration<double> took = Clock::now() - start;
    printf("%-8s %6lu kills  %6.1f s\n", family.name, kills, took.count());
    for (const auto& [outcome, count] : outcomes)
        printf("         %6lu %s\n", count, outcome.c_str());
    fflush(stdout);
    return breaches == 0;
}

} // namespace

int main(int count, char** words)
{
    const unsigned long kills = count > 1 ? strtoul(words[1], nullptr, 10) : 0;
    const uint64_t seed = count > 2 ? strtoull(words[2], nullptr, 10) : std::random_device{}();
    const char* only = count > 3 ? words[3] : nullptr;
    if (kills == 0 || count > 4) {
        fputs("usage: killCampaign KILLS [SEED [FAMILY]]\n", stderr);
        return 2;
    }
    printf("%lu kills per family, seed %llu\n", kills, static_cast<unsigned long long>(seed));
    bool good = true;
    bool found = false;
    for (const Family& family : families) {
        if (only != nullptr && strcmp(only, family.name) != 0)
            continue;
        found = true;
        good = run(family, kills, seed) && good;
    }
    if (!found)
        fprintf(stderr, "no such family: %s\n", only);
    return good && found ? 0 : 1;
}
