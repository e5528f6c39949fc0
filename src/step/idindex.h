// File id -> instance, for resolving the "#n" references of a file.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "support/memory.h"

struct kxBaseObject;

namespace kx {

template <typename T>
using TrackedVector = std::vector<T, TrackedAllocator<T>>;

// File id -> instance: a direct table while ids stay dense (as exporters
// write them), a hash map once they do not.
class IdIndex {
public:
    kxBaseObject *find(uint32_t id) const {
        if (id < dense_.size() && dense_[id] != nullptr) return dense_[id];
        if (sparse_.empty()) return nullptr;
        auto found = sparse_.find(id);
        return found != sparse_.end() ? found->second : nullptr;
    }
    // False when the id is taken already.
    bool insert(uint32_t id, kxBaseObject *instance) {
        if (find(id) != nullptr) return false;
        if (id < dense_.size()) {
            dense_[id] = instance;
        } else if (id < 2 * dense_.size() + 65536 + 8ull * count_) {
            dense_.resize(static_cast<size_t>(id) + 1 + dense_.size() / 2, nullptr);
            dense_[id] = instance;
        } else {
            sparse_.emplace(id, instance);
        }
        count_++;
        return true;
    }

private:
    TrackedVector<kxBaseObject *> dense_;
    std::unordered_map<uint32_t, kxBaseObject *, std::hash<uint32_t>, std::equal_to<uint32_t>,
                       TrackedAllocator<std::pair<const uint32_t, kxBaseObject *>>>
        sparse_;
    uint64_t count_ = 0;
};

}  // namespace kx
