#include "agent/QtWaitWatch.h"

#include <QtCore/QAbstractEventDispatcher>

#include "agentkit/CommandChannel.h"

namespace kwagent {

namespace {

bool g_waiting = false;  // the GUI thread's alone

}  // namespace

QtWaitWatch::QtWaitWatch(QObject* parent, kwagentkit::CommandChannel* channel)
    : QObject(parent), m_channel(channel) {
  QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
  if (dispatcher == nullptr) return;
  connect(dispatcher, SIGNAL(aboutToBlock()), this, SLOT(Blocking()), Qt::DirectConnection);
  connect(dispatcher, SIGNAL(awake()), this, SLOT(Awake()), Qt::DirectConnection);
}

bool QtWaitWatch::Waiting() { return g_waiting; }

void QtWaitWatch::NoteAwake() { g_waiting = false; }

void QtWaitWatch::Blocking() {
  g_waiting = true;
  m_channel->NoteAgentWaits(true);
}

void QtWaitWatch::Awake() {
  g_waiting = false;
  m_channel->NoteAgentWaits(false);
}

}  // namespace kwagent
