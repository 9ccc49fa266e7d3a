// The rows of the benchmark.
#include "comparison.h"

namespace bench {

std::vector<Row>& rows() {
    static std::vector<Row> all;
    return all;
}

} // namespace bench
