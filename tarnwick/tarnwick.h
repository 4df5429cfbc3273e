#pragma once

/// Umbrella of the base layer: exceptions, text conversion, heap counter.
#include <tarnwick/IException.h>
#include <tarnwick/heap.h>
#include <tarnwick/text.h>
