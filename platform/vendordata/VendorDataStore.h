// The vendor-data file: reads and writes byte ranges of the record, durably and
// atomically. A write locks "<file>.lock" (flock, so writers of every process
// take turns), loads the record, changes it, writes "<file>.tmp", syncs it,
// renames it over the file and syncs the directory. A reader opens the file
// without a lock: the rename lets it see either the old or the new image,
// never a mix. Any thread; instances are cheap and hold only the path.
#ifndef VENDOR_DATA_STORE_H
#define VENDOR_DATA_STORE_H

#include <cstdint>
#include <string>

class VendorDataRecord;

class VendorDataStore {
public:
    // DVR_VENDOR_DATA, else the default under the service's data directory;
    // empty when no default can be formed (no HOME for a non-root user).
    static std::string configuredPath();

    explicit VendorDataStore(std::string path);

    // Both return 0 or a negative errno as documented in qv_vendor_data.h.
    int read(int position, int length, uint8_t *out) const;
    int write(int position, int length, const uint8_t *bytes) const;

private:
    enum class Purpose { kReading, kWriting };

    // Loads the file into record; -ENOENT when it does not exist. A damaged
    // file leaves record empty, is logged (for reading once per damaged file
    // version, for writing every time, as the write replaces it) and counts
    // as loaded.
    int load(VendorDataRecord *record, Purpose purpose) const;
    int replace(const VendorDataRecord &record) const;
    int lockForWriting(int *lockFd) const;
    int checkArguments(int position, int length, const void *buffer) const;

    std::string mPath;
};

#endif  // VENDOR_DATA_STORE_H
