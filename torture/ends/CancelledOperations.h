// What threads do that are cancelled meanwhile.
#ifndef VQTORTURE_CANCELLED_OPERATIONS_H
#define VQTORTURE_CANCELLED_OPERATIONS_H

#include <memory>
#include <span>

#include "VQRegLib.h"
#include "support/TempStore.h"

namespace vqtorture {

// The child's store, and another store of the child on the same file, which is like another process.
struct Stores {
    explicit Stores(const vqtest::TempStore& place);

    std::unique_ptr<VQRegLib::CRegLib> session;
    std::unique_ptr<VQRegLib::CRegLib> other;
    const vqtest::TempStore& file;
};

struct CancelledOperation {
    const char* name;
    int (*once)(Stores& stores);
    long after;  // the number A
    void (*before)(Stores& stores);
};

std::span<const CancelledOperation> cancelledOperations();

}  // namespace vqtorture

#endif  // VQTORTURE_CANCELLED_OPERATIONS_H
