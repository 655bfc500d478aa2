#pragma once
// Fills a wire message (the idlc C struct) with values that vary by member and by variant, and gives
// the same values as the JSON an independent decoder prints for it from the channel schema: 64-bit
// integers as strings, enumerations as numbers, elements of sequences of enumerations as {"Value": n}
// and of sequences of sequences as {"Items": [...]}.
#include "vantrel/catalog/Catalog.h"

#include <nlohmann/json.hpp>

#include <cstdint>

namespace vantrel::mcap::samples {

// Variant 0: every sequence as long as its bound allows (up to 2 elements); variant 1: every sequence
// empty; variant 2: one element each. Strings and numbers differ between variants too.
// The sample's strings and sequence buffers are malloc'ed: dds_sample_free(..., DDS_FREE_CONTENTS) frees them.
nlohmann::json fill(const catalog::StructInfo& type, void* sample, int variant);

}  // namespace vantrel::mcap::samples
