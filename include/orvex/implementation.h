// The functions of the layer, for a service that is compiled with ORVEX_SEPARATE_COMPILATION. One
// source file of the service includes this header and nothing else of the layer. All other source
// files then compile faster. Without the macro nobody needs this header.

#pragma once

#include "orvex/detail/api_impl.h"
#include "orvex/detail/arguments_impl.h"
#include "orvex/detail/call_impl.h"
#include "orvex/detail/handler_impl.h"
#include "orvex/detail/object_impl.h"
#include "orvex/detail/service_impl.h"
#include "orvex/detail/session_impl.h"
