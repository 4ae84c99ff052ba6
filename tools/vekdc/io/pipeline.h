// An ordered parallel pipeline: read a block, work on it on one of N threads, hand the results on
// in the order of the blocks.
//
// Reading and handing on stay on the calling thread, so that they need no lock and may throw; only
// the work runs elsewhere. A ring of slots bounds memory: 2 * threads blocks are under way at most.
// The calling thread fills free slots, and when there is none left (or nothing left to read) waits
// for the oldest one. Slots are reused, buffers and all. With one thread nothing is started, and
// everything happens in turn.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace vekdc {

/// Runs the pipeline until `produce` returns false.
///
/// @tparam Block  Default-constructible; one a slot.
/// @param threads At least 1.
/// @param produce bool(Block&): fills a block, or returns false when there are no more.
/// @param work    void(Block&, unsigned thread): works on a block; `thread` counts from 0, so that
///                a thread can have scratch memory of its own. May throw: the exception comes out
///                of this function when the block's turn comes.
/// @param consume void(Block&): takes a block's result.
template <class Block, class Produce, class Work, class Consume>
void orderedPipeline(unsigned threads, Produce&& produce, Work&& work, Consume&& consume) {
    if (threads <= 1) {
        Block block{};
        while (produce(block)) {
            work(block, 0U);
            consume(block);
        }
        return;
    }

    struct Slot {
        Block block{};
        bool done = false;
        std::exception_ptr failure;
    };
    std::vector<Slot> ring(2 * static_cast<size_t>(threads));
    std::mutex mutex;
    std::condition_variable changed;
    size_t produced = 0;  // Blocks handed to the workers, taken by them, and consumed.
    size_t taken = 0;
    size_t consumed = 0;
    bool stop = false;

    auto worker = [&](unsigned thread) {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [&] { return stop || taken < produced; });
            if (stop) return;
            Slot& slot = ring[taken++ % ring.size()];
            lock.unlock();
            try {
                work(slot.block, thread);
            } catch (...) {
                slot.failure = std::current_exception();
            }
            lock.lock();
            slot.done = true;
            changed.notify_all();
        }
    };

    // Stops and joins the workers whichever way this function is left.
    struct Crew {
        std::mutex& mutex;
        std::condition_variable& changed;
        bool& stop;
        std::vector<std::jthread> threads;
        ~Crew() {
            {
                const std::lock_guard lock(mutex);
                stop = true;
            }
            changed.notify_all();
        }
    } crew{mutex, changed, stop, {}};
    for (unsigned i = 0; i < threads; ++i) crew.threads.emplace_back(worker, i);

    for (bool more = true; more || consumed < produced;) {
        if (more && produced - consumed < ring.size()) {
            Slot& slot = ring[produced % ring.size()];
            slot.done = false;
            more = produce(slot.block);
            if (more) {
                const std::lock_guard lock(mutex);
                ++produced;
                changed.notify_all();
            }
            continue;
        }
        Slot& slot = ring[consumed % ring.size()];
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return slot.done; });
        }
        if (slot.failure) std::rethrow_exception(slot.failure);
        consume(slot.block);
        ++consumed;
    }
}

}  // namespace vekdc
