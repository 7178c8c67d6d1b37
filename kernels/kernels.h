// The ten kernels. Each function queues the kernel of its name on the stream of the selected
// device, in the launch shape that its reduction and index space are made for. A failed launch
// surfaces at the next cudaGetLastError.
//
// params.h has the layouts of the arrays, bodies/ the formulas.
#pragma once

#include "device/runtime.h"
#include "kernels/arrays.h"

namespace zeph {

// The half spectrum of a full complex N x N spectrum (element j * N + i): active modes are copied,
// everything else is zero.
void projectState(cudaStream_t stream, const V2* spectrum, V2* omega, const Params& p);

// The velocity spectra of the flow on the padded grid in planes 0 and 1 and, for "advective", those
// of the vorticity gradient in planes 2 and 3; zero outside the active set.
void velocityToPadded(cudaStream_t stream, const V2* omega, V2* padded, const Params& p);

// In physical space: the products of the nonlinear term, in place, and for each of the 64 blocks
// the largest |u| + |v| and a flag that is not 0 where a value is not finite.
void reduceCFLAndProducts(cudaStream_t stream, float* padded, V2* cflPartials, const Params& p);

// Chooses the time step from the speed bound, the growth limiter and the endpoint.
void selectTimeStep(cudaStream_t stream, const V2* cflPartials, ClockState* clock, const Params& p);

// The products alone.
void nonlinearProducts(cudaStream_t stream, float* padded, const Params& p);

// Advances every mode by one stage of the integrator.
void advanceStage(cudaStream_t stream, const StageArrays& arrays, const Params& p);

// Advances the clock by the step just taken.
void commitStep(cudaStream_t stream, ClockState* clock, const Params& p);

// For each of the 64 blocks: energy, enstrophy, a flag for non-finite values, palinstrophy.
void spectralStatistics(cudaStream_t stream, const V2* omega, float4* statPartials,
                        const Params& p);

// The spectra of a snapshot: vorticity and, with p.stage = vorticityAndVelocity, velocity.
void prepareSnapshot(cudaStream_t stream, const V2* omega, V2* snapshotSpectra, const Params& p);

// The physical fields of a snapshot from the transformed planes, and for each of the 64 blocks the
// largest |vorticity|, the largest speed and a flag; 64 records later the sums of the vorticity and
// of its square.
void extractSnapshot(cudaStream_t stream, const float* snapshotPlanes, float* fields,
                     float4* snapshotPartials, const Params& p);

}  // namespace zeph
