// A range list kept in blocks, into which one range is inserted exactly as
// rangeArrayInsert inserts it into the flat list, at a cost that does not grow
// with the length of the list.
//
// rangeArrayInsert finds its place by two binary searches over positions, then
// moves the whole tail of the list: linear per range, quadratic over many. On a
// list that is not normalised (once a range with lower > upper, or one ending at
// INT32_MAX, went in, since "upper + 1" wraps there) the place it finds depends
// on which positions the searches probe, so the searches here are the very same
// searches over the same positions. The blocks only make the rest cheap: the
// element at position i is found through a Fenwick tree over the block sizes
// (O(log blocks); consecutive probes that fall in one block cost nothing more),
// and an insertion moves the rest of one block, not of the list.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgRangeBlocks.h must not see server headers: include it before postgres.h");
#endif

#include <cstdint>
#include <cstring>

#include "qnPgRangeArray.h"

namespace qn::pgRangeArray {

// Zero-filled memory is a valid empty list. Cap is the room of a block, in
// ranges: a full block splits into two halves; emptied blocks are dropped once
// they make up half of the blocks.
template <qn::pg::AllocFn A, qn::pg::FreeFn F, uint32_t Cap = 1024>
struct RangeBlockList {
    static_assert(Cap >= 4 && Cap % 2 == 0, "a block splits into two halves");
    using R = Range<int32_t>;

    struct Block {
        R* data;  // room for Cap ranges
        uint64_t size;
    };

    qn::pg::tVector<Block, A, F> blocks;
    // tree[k], k from 1 to treeSize: the Fenwick sums of the block sizes, the
    // blocks counted up to a power of 2 (those past the last one empty), so that
    // a lookup descends without bounds tests.
    qn::pg::tVector<uint64_t, A, F> tree;
    uint64_t treeSize;
    uint64_t count;  // ranges in all blocks
    uint64_t emptyBlocks;
    // The block that the last lookup found, and the position of its first range.
    uint64_t cachedBlock;
    uint64_t cachedStart;
    bool cached;

    uint64_t size() const { return count; }
    bool active() const { return !blocks.empty(); }

    // Takes the list [first, last), in blocks filled to half. False when memory
    // runs out (reported by the vectors); the list is then empty.
    template <typename Poll>
    bool assign(const R* first, const R* last, Poll poll) {
        release();
        constexpr uint64_t kHalf = Cap / 2;
        const uint64_t n = static_cast<uint64_t>(last - first);
        if (!blocks.reserve((n + kHalf - 1) / kHalf)) return false;
        Poller<Poll> tick(poll);
        for (uint64_t done = 0; done < n; done += kHalf) {
            const uint64_t take = n - done < kHalf ? n - done : kHalf;
            Block b{static_cast<R*>(A(Cap * sizeof(R))), take};
            if (!b.data) {
                release();
                return false;
            }
            std::memcpy(b.data, first + done, take * sizeof(R));
            blocks.push_back(b);
            tick(take);
        }
        count = n;
        return rebuildTree();
    }

    // Writes the list into out, which has room for size() ranges.
    template <typename Poll>
    void copyTo(R* out, Poll poll) const {
        Poller<Poll> tick(poll);
        for (const Block& b : blocks) {
            if (b.size) std::memcpy(out, b.data, b.size * sizeof(R));
            out += b.size;
            tick(b.size);
        }
    }

    // rangeArrayInsert(list, r), on the list these blocks hold. False when memory
    // runs out (reported by the vectors); the list may then have lost ranges.
    bool insert(const R& r) {
        if (count == 0) return insertAt(0, r);
        const uint64_t hi = partition(0, count, [&](const R& e) { return !rangeArrayInsertPredUpper(r, e); });
        const uint64_t lo = partition(0, hi, [&](const R& e) { return rangeArrayInsertPredLower(e, r); });
        if (hi == 0 || lo == hi || lo == count) return insertAt(lo, r);
        R& merged = at(lo);
        if (r.lower < merged.lower) merged.lower = r.lower;
        const int32_t lastUpper = at(hi - 1).upper;
        merged.upper = lastUpper > r.upper ? lastUpper : r.upper;
        if (hi - lo > 1) erase(lo + 1, hi);
        return true;
    }

    void release() {
        for (Block& b : blocks) F(b.data);
        blocks.release();
        tree.release();
        count = emptyBlocks = treeSize = 0;
        cached = false;
    }

private:
    // The first position of [first, last) whose range fails pred, probing the
    // positions partitionPoint probes on the flat list.
    template <typename Pred>
    uint64_t partition(uint64_t first, uint64_t last, Pred pred) {
        uint64_t n = last - first;
        while (n > 0) {
            const uint64_t half = n / 2;
            const uint64_t middle = first + half;
            if (pred(at(middle))) {
                first = middle + 1;
                n -= half + 1;
            } else {
                n = half;
            }
        }
        return first;
    }

    // The block holding position i < count, and the position of its first range.
    void locate(uint64_t i, uint64_t& block, uint64_t& start) {
        if (cached && i >= cachedStart && i - cachedStart < blocks[cachedBlock].size) {
            block = cachedBlock;
            start = cachedStart;
            return;
        }
        uint64_t k = 0, rest = i;
        for (uint64_t step = treeSize / 2; step; step >>= 1) {
            const uint64_t sum = tree[k + step];
            const bool past = sum <= rest;
            k += past ? step : 0;
            rest -= past ? sum : 0;
        }
        block = cachedBlock = k;
        start = cachedStart = i - rest;
        cached = true;
    }

    R& at(uint64_t i) {
        uint64_t block, start;
        locate(i, block, start);
        return blocks[block].data[i - start];
    }

    void addToTree(uint64_t block, int64_t delta) {
        for (uint64_t k = block + 1; k <= treeSize; k += k & (~k + 1)) tree[k] += static_cast<uint64_t>(delta);
    }

    // Rebuilds the tree from the block sizes, in linear time.
    bool rebuildTree() {
        const uint64_t n = blocks.size();
        treeSize = 1;
        while (treeSize < n) treeSize *= 2;
        if (!tree.resize(treeSize + 1)) return false;
        for (uint64_t k = 1; k <= treeSize; ++k) tree[k] = k <= n ? blocks[k - 1].size : 0;
        for (uint64_t k = 1; k < treeSize; ++k) tree[k + (k & (~k + 1))] += tree[k];
        cached = false;
        return true;
    }

    // Inserts r before position i (i == count: after the last range).
    bool insertAt(uint64_t i, const R& r) {
        uint64_t block, offset;
        if (i == count) {
            if (blocks.empty()) {
                Block b{static_cast<R*>(A(Cap * sizeof(R))), 0};
                if (!b.data) return false;
                blocks.push_back(b);
                if (blocks.empty() || !rebuildTree()) return false;
                ++emptyBlocks;
            }
            block = blocks.size() - 1;
            offset = blocks[block].size;
        } else {
            uint64_t start;
            locate(i, block, start);
            offset = i - start;
        }
        if (blocks[block].size == Cap) {
            if (!split(block)) return false;
            if (offset > Cap / 2) {
                ++block;
                offset -= Cap / 2;
            }
        }
        Block& b = blocks[block];
        std::memmove(b.data + offset + 1, b.data + offset, (b.size - offset) * sizeof(R));
        b.data[offset] = r;
        ++b.size;
        if (b.size == 1) --emptyBlocks;  // only the last block takes a range when empty
        ++count;
        addToTree(block, 1);
        cached = false;
        return true;
    }

    // Moves the upper half of a full block into a new block after it.
    bool split(uint64_t block) {
        R* data = static_cast<R*>(A(Cap * sizeof(R)));
        if (!data) return false;
        const uint64_t n = blocks.size();
        if (!blocks.resize(n + 1)) return false;
        std::memmove(blocks.data() + block + 2, blocks.data() + block + 1, (n - block - 1) * sizeof(Block));
        std::memcpy(data, blocks[block].data + Cap / 2, Cap / 2 * sizeof(R));
        blocks[block].size = Cap / 2;
        blocks[block + 1] = Block{data, Cap / 2};
        return rebuildTree();
    }

    // Removes the ranges at positions [from, to): those of the block of `from`
    // from there on, then the same again, block after block.
    void erase(uint64_t from, uint64_t to) {
        uint64_t left = to - from;
        while (left > 0) {
            uint64_t block, start;
            locate(from, block, start);
            Block& b = blocks[block];
            const uint64_t offset = from - start;
            const uint64_t take = b.size - offset < left ? b.size - offset : left;
            std::memmove(b.data + offset, b.data + offset + take, (b.size - offset - take) * sizeof(R));
            b.size -= take;
            if (b.size == 0) ++emptyBlocks;
            count -= take;
            left -= take;
            addToTree(block, -static_cast<int64_t>(take));
            cached = false;
        }
        if (emptyBlocks * 2 > blocks.size()) dropEmptyBlocks();
    }

    // Frees the empty blocks but the last (where ranges after the end go).
    void dropEmptyBlocks() {
        uint64_t kept = 0;
        const uint64_t n = blocks.size();
        for (uint64_t k = 0; k < n; ++k) {
            if (blocks[k].size == 0 && k + 1 < n) {
                F(blocks[k].data);
                continue;
            }
            blocks[kept++] = blocks[k];
        }
        blocks.resize(kept);
        emptyBlocks = blocks[kept - 1].size == 0 ? 1 : 0;
        rebuildTree();
    }
};

}  // namespace qn::pgRangeArray
