// File id -> instance, for resolving the "#n" references of a file.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <unordered_map>

#include "support/memory.h"

struct kxBaseObject;

namespace kx {

// File id -> instance: a direct table while ids stay dense (as exporters
// write them), a hash map once they do not. Once every id is known (after
// the first of two passes) the table can be frozen into a packed form: a
// bit per id, a running count per 64 ids and the instances in id order,
// which takes a third of the room when ids have gaps.
class IdIndex {
public:
    IdIndex() = default;
    ~IdIndex() {
        mem_free(dense_);
        mem_free(present_);
        mem_free(ranks_);
        mem_free(packed_);
    }
    IdIndex(const IdIndex &) = delete;
    IdIndex &operator=(const IdIndex &) = delete;

    kxBaseObject *find(uint32_t id) const {
        if (id < dense_size_) {
            if (packed_ == nullptr) {
                if (dense_[id] != nullptr) return dense_[id];
            } else {
                const uint64_t word = present_[id / 64];
                const uint64_t below = (uint64_t{1} << (id % 64)) - 1;
                if ((word >> (id % 64)) & 1) return packed_[ranks_[id / 64] + std::popcount(word & below)];
            }
        }
        if (sparse_.empty()) return nullptr;
        auto found = sparse_.find(id);
        return found != sparse_.end() ? found->second : nullptr;
    }
    // False when the id is taken already (or the index is frozen).
    bool insert(uint32_t id, kxBaseObject *instance) {
        if (frozen_ || find(id) != nullptr) return false;
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
    // Forgets an id inserted before the index was frozen.
    void remove(uint32_t id) {
        if (frozen_) return;
        if (id < dense_size_ && dense_[id] != nullptr) {
            dense_[id] = nullptr;
            count_--;
        } else if (sparse_.erase(id) > 0) {
            count_--;
        }
    }
    // Packs the direct table when ids have gaps (a quarter or more of the
    // table empty), else gives back its spare room at the end; no id can be
    // added after.
    void freeze() {
        if (frozen_) return;
        frozen_ = true;
        size_t held = 0, used = 0;
        for (size_t id = 0; id < dense_size_; id++) {
            if (dense_[id] == nullptr) continue;
            held++;
            used = id + 1;
        }
        dense_size_ = used;
        if (used == 0) {
            mem_free_and_clear(&dense_);
            return;
        }
        if (4 * held >= 3 * used) {
            dense_ = static_cast<kxBaseObject **>(mem_realloc(dense_, used * sizeof(kxBaseObject *)));
            return;
        }
        const size_t words = (used + 63) / 64;
        present_ = mem_new_zeroed<uint64_t>(words);
        ranks_ = static_cast<uint32_t *>(mem_alloc(words * sizeof(uint32_t)));
        packed_ = static_cast<kxBaseObject **>(mem_alloc(held * sizeof(kxBaseObject *)));
        uint32_t next = 0;
        for (size_t id = 0; id < used; id++) {
            if (id % 64 == 0) ranks_[id / 64] = next;
            if (dense_[id] == nullptr) continue;
            present_[id / 64] |= uint64_t{1} << (id % 64);
            packed_[next++] = dense_[id];
        }
        mem_free_and_clear(&dense_);
    }

private:
    // Grown in place where the allocator can (a large block is remapped,
    // not copied), so the index never needs twice its size.
    void grow(size_t size) {
        dense_ = static_cast<kxBaseObject **>(
            mem_realloc_zeroed(dense_, dense_size_ * sizeof(kxBaseObject *), size * sizeof(kxBaseObject *)));
        dense_size_ = size;
    }

    kxBaseObject **dense_ = nullptr;
    size_t dense_size_ = 0;
    uint64_t *present_ = nullptr;  // frozen: a bit per id below dense_size_
    uint32_t *ranks_ = nullptr;    // frozen: the ids present below each 64
    kxBaseObject **packed_ = nullptr;
    std::unordered_map<uint32_t, kxBaseObject *, std::hash<uint32_t>, std::equal_to<uint32_t>,
                       TrackedAllocator<std::pair<const uint32_t, kxBaseObject *>>>
        sparse_;
    uint64_t count_ = 0;
    bool frozen_ = false;
};

}  // namespace kx
