#pragma once

#include "agent/change/Image.h"

namespace agent::dev {

/// Reads a table from the database into an image, with one run of the client for each row and one
/// for the number of rows.
///
/// Rows are read by position, the last one first: when somebody removes a row meanwhile, one is
/// read twice rather than none at all, which shows. Then the table is read again.
/// @return a corvanta_status; on a failure the image stays as it was
int readTable(Image& image, Table table);

/// Reads a table again if it has no longer as many rows as the image.
int readIfResized(Image& image, Table table);

/// Reads one row in a single run where its position is still the same, else the whole table.
int readRow(Image& image, Table table, int id);

} // namespace agent::dev
