// File id -> instance, for resolving the "#n" references of a file.
#pragma once

#include <algorithm>
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
    IdIndex() = default;
    ~IdIndex() { mem_free(dense_); }
    IdIndex(const IdIndex &) = delete;
    IdIndex &operator=(const IdIndex &) = delete;

    kxBaseObject *find(uint32_t id) const {
        if (id < dense_size_ && dense_[id] != nullptr) return dense_[id];
        if (sparse_.empty()) return nullptr;
        auto found = sparse_.find(id);
        return found != sparse_.end() ? found->second : nullptr;
    }
    // False when the id is taken already.
    bool insert(uint32_t id, kxBaseObject *instance) {
        if (find(id) != nullptr) return false;
        if (id < dense_size_) {
            dense_[id] = instance;
        } else if (id < 2 * dense_size_ + 65536 + 8ull * count_) {
            grow(static_cast<size_t>(id) + 1 + dense_size_ / 2);
            dense_[id] = instance;
        } else {
            sparse_.emplace(id, instance);
        }
        count_++;
        return true;
    }

    // Gives back the room kept for ids beyond the largest: once every id is
    // known (after the first of two passes).
    void trim() {
        size_t used = dense_size_;
        while (used > 0 && dense_[used - 1] == nullptr) used--;
        if (used == dense_size_) return;
        if (used == 0)
            mem_free_and_clear(&dense_);
        else
            dense_ = static_cast<kxBaseObject **>(mem_realloc(dense_, used * sizeof(kxBaseObject *)));
        dense_size_ = used;
    }

private:
    // Grown in place where the allocator can (a large block is remapped,
    // not copied), so the index never needs twice its size.
    void grow(size_t size) {
        dense_ = static_cast<kxBaseObject **>(mem_realloc(dense_, size * sizeof(kxBaseObject *)));
        std::fill(dense_ + dense_size_, dense_ + size, nullptr);
        dense_size_ = size;
    }

    kxBaseObject **dense_ = nullptr;
    size_t dense_size_ = 0;
    std::unordered_map<uint32_t, kxBaseObject *, std::hash<uint32_t>, std::equal_to<uint32_t>,
                       TrackedAllocator<std::pair<const uint32_t, kxBaseObject *>>>
        sparse_;
    uint64_t count_ = 0;
};

}  // namespace kx
