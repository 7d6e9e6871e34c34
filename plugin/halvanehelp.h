#pragma once
class QWidget;

namespace HalvaneHelp {
// Binds the host's context help to a widget: book "halvane", the given topic
// (a null topic gives a null topic text).
void setHelpReference(QWidget* widget, const char* topic);
} // namespace HalvaneHelp
