#pragma once
// The data section record by record, as the reader scans it and as recovery salvages it: the header
// first, then every top-level record, with chunks opened (decompressed, CRC checked) as they come.
// Strict walks throw at the first truncated or damaged record; tolerant walks stop before it and say
// where and why, so that everything before it can still be used.
#include "ByteReader.h"
#include "InputFile.h"
#include "vantrel/mcap/Records.h"

#include <cstdint>
#include <functional>
#include <string>

namespace vantrel::mcap::detail {

// The header record after the leading magic; returns the offset of the first record after it.
uint64_t readHeader(const InputFile& file, uint64_t limit, Header& header);

// Where a tolerant walk stopped: `reason` is empty when it met the data end record or `end`.
struct WalkStop {
    uint64_t offset = 0;  // end of the last record that was used whole
    std::string reason;
};

// Hands each run of records to `onRecords` (a top-level schema, channel or message record, or the
// records of one chunk); it returns false to stop the walk. `stop` null: strict. Returns the number of
// chunks handed out.
uint32_t walkData(const InputFile& file, uint64_t start, uint64_t end,
                  const std::function<bool(ByteReader& records)>& onRecords, WalkStop* stop);

}  // namespace vantrel::mcap::detail
