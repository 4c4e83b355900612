#pragma once

#include "agent/change/Image.h"
#include "agent/change/Record.h"
#include "agent/change/Tables.h"

#include <optional>
#include <string>

// How a change is taken back, while others go on writing:
//
// 1. By column. One that still has one of the change's values goes back to what others had there.
//    One that others have written since is left, and the row is counted. A column that the change
//    never wrote is never written.
// 2. A row that the change has added goes. One in which others have written stays and is counted;
//    so does a bridge that still contains such a row, or one that others have added.
// 3. A row that the change has removed comes back, with a new Id, and what refers to a bridge
//    follows that. It does not come back, and is counted, when others have put a row for the same
//    subject there or have removed its bridge; what was in a bridge comes back into one that others
//    have given its name. Once it is back, it is not put back a second time: it is others' to
//    change or delete, and counted when they have.
// 4. Neighbouring members of a bridge come back as neighbours, in their order. When somebody
//    else's row has come between, they are made anew, a few times; then they stay and are counted.
// 5. It can be interrupted anywhere and resumed by the next process, which has the journal only.
//    So that says which rows are being put back before the first is, and their Ids after.
// 6. Each row is read right before it is written or removed, and left for another comparison when
//    it is no longer what was decided on.
namespace agent {

/// What taking back needs of the device.
class RestoreDevice {
public:
    virtual ~RestoreDevice() = default;

    /// Each reads into the image. @return whether it could
    virtual bool read(Image& image, Table table) = 0;
    virtual bool readRow(Image& image, Table table, int id) = 0; ///< which may be gone
    virtual bool readIfResized(Image& image, Table table) = 0; ///< when its size isn't the image's

    /// Runs a command. @return what the client prints; nothing when it has failed
    virtual std::optional<std::string> run(const std::string& commandLine) = 0;

    /// Has the journal hold a record. @return whether it does
    virtual bool store(const Record& record) = 0;
};

/// Takes back what there is to take back.
/// @param record keeps what has come back
/// @param image  of the database, kept up
/// @return how many rows had to be left alone; nothing when it didn't come to an end, and has to
///         be gone on with
std::optional<int> takeBack(Record& record, Image& image, RestoreDevice& device);

/// Whether all that the change removes or alters could be written back.
bool canBeRestored(const Record& record);

} // namespace agent
