#pragma once
// Identifiers that the host and its plug-ins share: extension ids, object
// interface ids, selection types, contexts, views, host commands and records.

namespace HVUI {
namespace Constants {
constexpr char DATAVIEW_ID[] = "com.northquay.dataview";
constexpr char LOCALVARIABLEVIEW_ID[] = "com.northquay.localvariable";
} // namespace Constants
} // namespace HVUI

namespace NQ {
namespace Ids {
constexpr char IHVCORE_EXTENSION[] = "com.northquay.ihvcore";
constexpr char IHALVANE_EXTENSION[] = "com.northquay.ihalvane";

constexpr char IHVEXPRESSION_IID[] = "com.northquay.IHVExpression";
constexpr char IHVFRAME_IID[] = "com.northquay.IHVFrame";
constexpr char IHVPROCESS_IID[] = "com.northquay.IHVProcess";

constexpr char SELECTION_FRAME[] = "HVFrame";
constexpr char SELECTION_PROCESS[] = "HVProcess";

constexpr char CONTEXT_DEBUGGER_CONNECTED[] = "HVDebugger.CONNECTED";
constexpr char CONTEXT_DEBUGGER_READY[] = "HVDebugger.READY";
constexpr char CONTEXT_SHOW_STATS[] = "com.northquay.halvane.context.show_stats";

constexpr char UPDATE_COMMAND[] = "com.northquay.command.update";
constexpr char SHOW_MESSAGE_OVERLAY_COMMAND[] = "com.northquay.command.showmessageoverlay";
constexpr char SHOW_MESSAGE_OVERLAY_PARAMETER[] = "Message";

constexpr char STOPPED_RECORD[] = "StoppedRecord";

// Where the host keeps its themed icons; %1 is the active theme's name.
constexpr char THEME_ICON_ROOT[] = ":/nqcore/themes/%1/";
} // namespace Ids
} // namespace NQ
