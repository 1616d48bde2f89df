#pragma once

// The library is built with hidden symbols; only what the agent reaches carries this mark.
#define NIMBAL_QOS_EXPORT __attribute__((visibility("default")))
