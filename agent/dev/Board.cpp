#include "agent/dev/Board.h"

#include "agent/change/Stage.h"
#include "agent/dev/DeviceModel.h"

namespace agent::dev {

void Board::show(Image& image) {
    Stage stage(image);
    const Programs::OnStage on(m_programs, stage);
    readConfiguration(next.model);
    publish();
}

void Board::publish() {
    next.counters.clientsKilled = m_programs.killed();
    m_link.send(next);
}

} // namespace agent::dev
