// The one implementation of BlockingQueue.
#pragma once

#include <stdint.h>

#include <vel_loc_fw/blocking_queue.h>
#include <vel_loc_fw/list.h>
#include <vel_loc_fw/waitable.h>

namespace vel_loc_fw {

class BlockingQueueImpl final : public BlockingQueue, public WaitableBase {
  public:
    BlockingQueueImpl(const char* name, bool verbose);
    ~BlockingQueueImpl() override;

    int push(void* item) override;
    int close() override;
    int pop(void** item, const timespec* absTime, bool* closed) override;
    int pop(void** item, const TimeDiff& timeout, bool* closed) override;
    int ZeroIfShouldWaitAgain_locked() override;

  private:
    static constexpr uint32_t kChunkItems = 62;  // a chunk fills 512 bytes
    // Items are stored in chunks, in push order.
    struct Chunk {
        Chunk* next;   // link of `chunks_`, which owns the chunk
        Chunk* newer;  // the chunk of the next newer items, or the next spare
        void* items[kChunkItems];
    };

    // Makes room for one more item at the newest end. False when out of memory.
    bool reserve_locked();

    // What push and pop touch, kept together right after the waitable's own
    // fields so that an operation pulls as few cache lines as possible: in-use
    // chunks run from `oldest_` to `newest_` through `newer`, the oldest item
    // is `oldest_->items[read_]` and the next goes to `newest_->items[write_]`.
    Chunk* oldest_ = nullptr;
    Chunk* newest_ = nullptr;
    uint32_t read_ = 0;
    uint32_t write_ = 0;
    uint64_t count_ = 0;
    bool closed_ = false;

    // Every chunk ever allocated, in use or spare. Chunks are recycled rather
    // than freed, so a queue in steady use allocates nothing; it keeps the
    // chunks of its longest backlog until it is destroyed.
    List<Chunk> chunks_;
    Chunk* spare_ = nullptr;
    const char* name_;
    // The verbose lines come from the waitable part; kept beside the name as
    // part of the queue's settings.
    [[maybe_unused]] bool verbose_;
};

}  // namespace vel_loc_fw
