#pragma once

#include <string>

namespace agent::net {

/// The toolkit's state file: engine ID, boot count, users and their keys. Whoever loses it locks
/// every SNMPv3 user out.
///
/// The toolkit writes it line by line and doesn't see whether it could. So it does that in a folder
/// beside, and only what is whole takes the place of the old file.
class Identity {
public:
    explicit Identity(const std::string& stateFolder);

    /// Brings the file back that a toolkit has set aside to write another one, and didn't come to
    /// the end of it. From both of them it would take another engine ID. To be called before the
    /// toolkit reads any.
    void mend();

    /// Stores this start's number. A packet that was sent to the engine before can't be sent to it
    /// again then, whatever ends it.
    /// @return whether it is safely there
    bool storeBoots();

    /// Stores what managers have changed of the toolkit's own objects, such as sysName.
    void storeChanges();

private:
    bool takeNewFile();

    const std::string m_folder;
    const std::string m_file;
    const std::string m_newFolder; ///< where the toolkit writes
    const std::string m_newFile;
};

} // namespace agent::net
