// Simulated physical memory: one contiguous shared-memory file whose bytes
// carry stable 32-bit "physical" addresses, the way frame buffers of the
// device's video pipeline are reached through /dev/mem. The process that
// creates the arena hands out buffers from it; any other process (a snapshot
// tool, say) attaches to the same file read-only and translates addresses it
// was given.
//
// File layout: one header page (magic, version, first physical address, total
// size), then the buffers. The physical address of a byte is the arena's base
// address plus its offset in the file, so the header page is never handed out.
//
// Thread safety: every operation may be called from any thread.
#ifndef DVR_PHYSICAL_ARENA_H
#define DVR_PHYSICAL_ARENA_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace dvrspace {

class DVRPhysicalArena {
public:
    struct Buffer {
        void *va;     // mapped address in this process
        uint32_t pa;  // simulated physical address
        size_t size;  // bytes
    };

    static constexpr uint32_t kDefaultBase = 0x40000000;
    static constexpr size_t kPageSize = 4096;

    // Creates (or replaces) the file at path with size bytes, including the
    // header page, and maps it read-write. The file is removed again when the
    // arena is destroyed. Null with *error set when the file cannot be made or
    // base + size does not fit in 32 bits.
    static std::unique_ptr<DVRPhysicalArena> create(const std::string &path, size_t size,
                                                    uint32_t base, std::string *error);
    // Maps an arena made by another process, read-only. Null with *error set
    // when the file is missing or not an arena.
    static std::unique_ptr<DVRPhysicalArena> attach(const std::string &path, std::string *error);
    // /dev/shm when present, else $TMPDIR or /tmp.
    static std::string defaultDirectory();
    // The per-process default: defaultDirectory()/dvr-hal-arena-<pid>.
    static std::string defaultPath();
    // Removes the default-named arenas in directory whose processes no longer
    // run (they crashed or were killed before removing their file).
    static void removeStale(const std::string &directory);
    // The default-named arenas in directory whose processes still run, as
    // paths in name order (a snapshot tool looks for the service's arena).
    static std::vector<std::string> findLive(const std::string &directory);

    ~DVRPhysicalArena();
    DVRPhysicalArena(const DVRPhysicalArena &) = delete;
    DVRPhysicalArena &operator=(const DVRPhysicalArena &) = delete;

    // A zero-filled, page-aligned buffer of at least size bytes. False when the
    // arena is full or was attached rather than created.
    bool allocate(size_t size, Buffer *buffer);
    // Returns a buffer by its physical address; unknown addresses are ignored.
    void release(uint32_t pa);
    // Address in this process of the length bytes starting at pa, or null when
    // they do not lie inside one allocated buffer (inside the arena's data pages
    // for an attached arena). Never reads the memory.
    void *translate(uint32_t pa, size_t length) const;

    uint32_t base() const { return mBase; }
    size_t size() const { return mSize; }
    const std::string &path() const { return mPath; }
    bool isOwner() const { return mOwner; }

private:
    DVRPhysicalArena(std::string path, uint8_t *map, size_t size, uint32_t base, bool owner);

    std::string mPath;
    uint8_t *mMap;
    size_t mSize;
    uint32_t mBase;
    bool mOwner;
    mutable std::mutex mLock;
    std::map<size_t, size_t> mAllocations;  // offset -> size
};

}  // namespace dvrspace

#endif  // DVR_PHYSICAL_ARENA_H
