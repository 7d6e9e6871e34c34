#pragma once
// Ids the plug-in offers to the host: its interface, view, commands,
// contexts and contribution locations.

#include "host/hostids.h"

namespace HVUI {
namespace Constants {
constexpr char ARRAYLENS_IID[] = "com.northquay.iarraylens";
constexpr char ARRAYLENS_VIEW_ID[] = "com.northquay.arraylensview";
constexpr char ARRAYLENS_COMMAND[] = "com.northquay.arraylens.command";
constexpr char POPUP_PREFIX[] = "popup:";

constexpr char ARRAYLENS_TOOLBAR_LOCATION[] = "toolbar:com.northquay.arraylensview";
constexpr char ARRAYLENS_TOOLBAR_MENU[] = "toolbar:com.northquay.arraylensview.menu";
constexpr char ARRAYLENS_TOOLBAR_OBJECT_NAME[] = "ArrayLensBar";
constexpr char ARRAYLENS_SEPARATOR_PREFIX[] = "com.northquay.arraylens.separator";

constexpr char ARRAYLENS_FILTER_CONTEXT[] = "com.northquay.arraylensview.filter";
constexpr char ARRAYLENS_UPDATE_CONTEXT[] = "com.northquay.arraylensview.update";

constexpr char ARRAYLENS_FILTER_COMMAND[] = "com.northquay.arraylensview.filter.command";
constexpr char ARRAYLENS_CONFIG_COMMAND[] = "com.northquay.arraylensview.config.command";
constexpr char ARRAYLENS_SLICE_COMMAND[] = "com.northquay.arraylensview.slice.command";
constexpr char ARRAYLENS_THREAD_COMMAND[] = "com.northquay.arraylensview.thread.command";
constexpr char ARRAYLENS_TYPE_STRING_COMMAND[] = "com.northquay.arraylensview.type_string.command";
constexpr char ARRAYLENS_SLICE_STRING_COMMAND[] =
    "com.northquay.arraylensview.slice_string.command";
constexpr char ARRAYSTAT_COMMAND[] = "com.northquay.arraylensview.arraystat.command";
constexpr char ARRAY2DTABLE_COMMAND[] = "com.northquay.arraylensview.array2dtable.command";
constexpr char ARRAYLINEPLOT_COMMAND[] = "com.northquay.arraylensview.arraylineplot.command";
constexpr char ARRAYHISTPLOT_COMMAND[] = "com.northquay.arraylensview.arrayhistplot.command";
constexpr char ARRAYSURFPLOT_COMMAND[] = "com.northquay.arraylensview.arraysurfplot.command";
// The host's own Update command; the plug-in's handler is added under this id
// followed by "." and the view's name.
constexpr char UPDATE_VIEW_COMMAND[] = "com.northquay.command.update";

constexpr char HELP_BOOK[] = "halvane";
} // namespace Constants
} // namespace HVUI
