#pragma once

// Reuse of the small blocks that every queued transfer allocates and frees (its operation, its
// completion wrapper, its place in the queue). A burst of queued writes keeps many of them alive
// at once, more than the C library's per-thread cache holds, and each then costs a trip through
// the general allocator. Freed blocks are kept per thread and per size, up to a limit, and
// handed out again. Under AddressSanitizer blocks go straight to the global allocator, so that
// misuse of freed memory is still caught.

#include <cstddef>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HV_RECYCLING_POOL_DISABLED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define HV_RECYCLING_POOL_DISABLED 1
#endif

namespace Hv::Async::Detail {

class RecyclingPool {
public:
    static constexpr std::size_t GRANULE = 16;
    static constexpr std::size_t MAX_SIZE = 256;
    static constexpr std::size_t MAX_KEPT = 128;

    static void* allocate(std::size_t size)
    {
#ifndef HV_RECYCLING_POOL_DISABLED
        if (size <= MAX_SIZE) {
            Bucket& bucket = state().buckets[index(size)];
            if (bucket.head != nullptr) {
                FreeBlock* block = bucket.head;
                bucket.head = block->next;
                --bucket.count;
                return block;
            }
            // Any block of a bucket can take the place of any other.
            return ::operator new(rounded(size));
        }
#endif
        return ::operator new(size);
    }

    static void deallocate(void* pointer, std::size_t size) noexcept
    {
        if (pointer == nullptr)
            return;
#ifndef HV_RECYCLING_POOL_DISABLED
        if (size <= MAX_SIZE) {
            State& current = state();
            Bucket& bucket = current.buckets[index(size)];
            if (!current.isClosed && bucket.count < MAX_KEPT) {
                bucket.head = new (pointer) FreeBlock{bucket.head};
                ++bucket.count;
                return;
            }
        }
#else
        (void)size;
#endif
        ::operator delete(pointer);
    }

private:
    struct FreeBlock {
        FreeBlock* next;
    };
    struct Bucket {
        FreeBlock* head;
        std::size_t count;
    };
    // Trivially destructible, so that it can still be used after the thread's cleanup below.
    struct State {
        Bucket buckets[MAX_SIZE / GRANULE];
        bool isClosed;
    };
    // Gives the kept blocks back when the thread ends; blocks freed after that (by objects
    // destroyed later at exit) go straight to the global allocator.
    struct Cleanup {
        ~Cleanup()
        {
            State& current = state();
            current.isClosed = true;
            for (Bucket& bucket : current.buckets) {
                while (bucket.head != nullptr) {
                    FreeBlock* block = bucket.head;
                    bucket.head = block->next;
                    ::operator delete(block);
                }
                bucket.count = 0;
            }
        }
    };

    static std::size_t rounded(std::size_t size) { return (size + GRANULE - 1) / GRANULE * GRANULE; }
    static std::size_t index(std::size_t size) { return size == 0 ? 0 : (size - 1) / GRANULE; }

    static State& state()
    {
        static thread_local State current{};
        static thread_local Cleanup cleanup;
        // Touching the cleanup registers its destructor for this thread.
        (void)&cleanup;
        return current;
    }
};

// A standard allocator over the pool, for allocate_shared and the containers of the queue.
template <typename T>
class RecyclingAllocator {
public:
    using value_type = T;

    RecyclingAllocator() = default;
    template <typename U>
    RecyclingAllocator(const RecyclingAllocator<U>&) noexcept
    {
    }

    T* allocate(std::size_t count) { return static_cast<T*>(RecyclingPool::allocate(count * sizeof(T))); }
    void deallocate(T* pointer, std::size_t count) noexcept { RecyclingPool::deallocate(pointer, count * sizeof(T)); }

    template <typename U>
    bool operator==(const RecyclingAllocator<U>&) const noexcept
    {
        return true;
    }
    template <typename U>
    bool operator!=(const RecyclingAllocator<U>&) const noexcept
    {
        return false;
    }
};

} // namespace Hv::Async::Detail
