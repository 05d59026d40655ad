// Compile-time proof that our record declarations match the host's layout.
// The asserts are generated from the layout table at configure time, one per
// row, so a field out of place stops the build in both configurations.
#include <cstddef>

#include "hostapi/ae_effect.h"

#define CINEBAR_CHECK_FIELD(record, field, offset, size)                                            \
  static_assert(offsetof(record, field) == (offset), #record "." #field " is at the wrong offset"); \
  static_assert(sizeof(static_cast<record*>(nullptr)->field) == (size),                             \
                #record "." #field " has the wrong size")
#define CINEBAR_CHECK_RECORD(record, size) \
  static_assert(sizeof(record) == (size), #record " has the wrong size")

#include "ae_layout_asserts.inc"

namespace cinebar_hostapi {
// Number of layout rows proven above; the layout test compares it with the table.
extern const int kLayoutRowsChecked = CINEBAR_LAYOUT_ROWS;
}  // namespace cinebar_hostapi
