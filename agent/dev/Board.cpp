#include "agent/dev/Board.h"

#include "agent/change/Stage.h"
#include "agent/dev/Client.h"

namespace agent {

void Board::show(Image& image) {
    Stage stage(image);
    const OnStage on(stage);
    readConfiguration(next.model);
    publish();
}

void Board::publish() {
    next.counters.clientsKilled = clientsKilled();
    m_link.send(next);
}

} // namespace agent
