#pragma once

#include <string>
#include <vector>

namespace support {

/// A list of texts in memory that is shared with forked children: what a child notes is seen by its parent, in the
/// order in which it was noted. Made before the fork; several threads and processes may append at once.
class SharedRecord {
public:
    SharedRecord();
    ~SharedRecord() = default; // stays mapped to the end of the process: its users are static
    SharedRecord(const SharedRecord&) = delete;
    SharedRecord& operator=(const SharedRecord&) = delete;

    void Append(const std::string& strText);
    std::vector<std::string> Texts() const;
    /// Nobody may append meanwhile.
    void Clear();

private:
    struct Memory;
    Memory* _pMemory;
};

} // namespace support
