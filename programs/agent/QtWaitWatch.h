// Marks in a session's channel whether the GUI thread waits in its Qt
// event loop's own wait, for the window system or an event posted to it:
// between the event dispatcher's aboutToBlock and awake. Qt waits there
// alertably, so an APC queued to the thread runs there, at a point where
// the loop could as well have dispatched a message.
#pragma once

#include <QtCore/QObject>

namespace kwagentkit {
class CommandChannel;
}

namespace kwagent {

class QtWaitWatch : public QObject {
  Q_OBJECT

 public:
  // Watches the event dispatcher of the calling (GUI) thread and notes
  // each wait in the channel, for the driver and the agent's APC to read.
  QtWaitWatch(QObject* parent, kwagentkit::CommandChannel* channel);

 private slots:
  void Blocking();
  void Awake();

 private:
  kwagentkit::CommandChannel* m_channel;
};

}  // namespace kwagent
