#include "plugin/halvanehelp.h"

#include "host/nqcore.h"
#include "plugin/arraylensconstants.h"

namespace HalvaneHelp {
void setHelpReference(QWidget* widget, const char* topic) {
    const QString topicText = topic ? QString::fromUtf8(topic) : QString();
    const NQ::HelpReference reference(QString::fromLatin1(HVUI::Constants::HELP_BOOK), topicText);
    NQ::ICore::instance()->helpManager()->setHelpReference(widget, reference);
}
} // namespace HalvaneHelp
