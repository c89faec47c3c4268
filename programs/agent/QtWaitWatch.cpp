#include "agent/QtWaitWatch.h"

#include <QtCore/QAbstractEventDispatcher>

#include "agentkit/CommandChannel.h"

namespace kwagent {

QtWaitWatch::QtWaitWatch(QObject* parent, kwagentkit::CommandChannel* channel)
    : QObject(parent), m_channel(channel) {
  QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
  if (dispatcher == nullptr) return;
  connect(dispatcher, SIGNAL(aboutToBlock()), this, SLOT(Blocking()), Qt::DirectConnection);
  connect(dispatcher, SIGNAL(awake()), this, SLOT(Awake()), Qt::DirectConnection);
}

void QtWaitWatch::Blocking() { m_channel->NoteAgentWaits(true); }

void QtWaitWatch::Awake() { m_channel->NoteAgentWaits(false); }

}  // namespace kwagent
