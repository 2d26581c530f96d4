/// @file checks.h  The checks, in the order in which their causes stand before their effects.
#pragma once

#include "diagnose/check.h"
#include "diagnose/evidence.h"

namespace qv::tool::diagnose {

// What is recorded.
Check check_format(const Evidence &evidence);
Check check_length(const Evidence &evidence);
Check check_reference(const Evidence &evidence);
Check check_microphone(const Evidence &evidence);
Check check_same_recording(const Evidence &evidence);
Check check_echo_present(const Evidence &evidence);
Check check_order(const Evidence &evidence);
Check check_clipping(const Evidence &evidence);
Check check_near_in_reference(const Evidence &evidence);
Check check_noise(const Evidence &evidence);
Check check_levels(const Evidence &evidence);
Check check_processed(const Evidence &evidence);

// How the echo reaches the microphone.
Check check_reach(const Evidence &evidence);
Check check_steady_delay(const Evidence &evidence);
Check check_drift(const Evidence &evidence);
Check check_volume(const Evidence &evidence);
Check check_distortion(const Evidence &evidence);
Check check_gain_control(const Evidence &evidence);
Check check_bandwidth(const Evidence &evidence);
Check check_coupling(const Evidence &evidence);

// What the library makes of it.
Check check_canceller_on(const Evidence &evidence);
Check check_delay_found(const Evidence &evidence);
Check check_filter(const Evidence &evidence);
Check check_residual_echo(const Evidence &evidence);
Check check_near_end(const Evidence &evidence);

} // namespace qv::tool::diagnose
