// Every value is rounded to float or double exactly where the code stores or
// converts it. Extended precision kept in registers (x87 arithmetic) would
// round elsewhere and change result pictures, so such a build is refused.
#pragma once

#include <cfloat>

static_assert(FLT_EVAL_METHOD == 0, "float and double arithmetic must be evaluated in their own type");
