#include "Ratios.h"

#include <vector>

#include <QCoreApplication>

namespace {

const std::vector<Ratio> ratios = {
    {"A bundle's seal verified, against sha256sum of its files", "verifySeal", "sha256sumOfFiles", 1.3},
    {"A bundle sealed and signed, likewise", "signBundle", "sha256sumOfFiles", 1.3},
    {"A bundle's seal verified, against openssl's sha256", "verifySeal", "opensslOfFiles", 1.3},
    {"An update's gap, old end to new first paint, against a start", "gapOfUpdate", "startOfBundle", 2.5},
};

}  // namespace

int main(int argc, char** argv) {
    int none = 1;
    const QCoreApplication application(none, argv);
    return runBenchmarks(argc, argv, ratios);
}
