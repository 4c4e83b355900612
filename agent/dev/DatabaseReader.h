#pragma once

#include "agent/change/Image.h"

namespace agent::dev {

/// Reads a table from the database into an image, with one client run a row and one for their
/// number.
///
/// Rows are read by position, the last one first: when others remove a row meanwhile, one that has
/// been read already comes again, rather than one being passed over. Then it is read anew.
/// @return a corvanta_status; on a failure the image stays as it was
int readTable(Image& image, Table table);

/// Reads a table again if it has no longer as many rows as the image.
int readIfResized(Image& image, Table table);

/// Reads one row in a single run, if it still stands where it stood; else the table.
int readRow(Image& image, Table table, int id);

} // namespace agent::dev
