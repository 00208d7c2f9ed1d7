// A part that is loaded when a program runs, as a plug-in or the module of a script language is.
#include "clss/clastool/clastool/tkClassifierTool.h"

extern "C" TK_EXPORT bool pluginToolIsTrained()
{
    return tkClassifierTool().isTrained();
}
