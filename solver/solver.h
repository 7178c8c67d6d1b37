// A simulation: everything that it owns on its device, and what can be asked of it.
//
// The flow is dw/dt = -u.grad w + nu lap w on the doubly periodic square of side 2 pi, by a Fourier
// pseudo-spectral method in single precision. The device decides the time step and keeps the clock;
// the host queues steps and reads the clock once per batch.
//
// A solver has no lock: one thread at a time. It works on the device that was selected when it was
// made, whatever is selected when it is called.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "kernels/params.h"
#include "solver/config_record.h"
#include "solver/state_record.h"
#include "solver/statistics.h"

namespace zeph {

class Solver {
 public:
  // Starts from `samples` (N * N of physical vorticity, index y * N + x) or, where there are none,
  // from the seeded spectrum of the configuration. Raises std::invalid_argument for a configuration
  // or samples that are refused, and std::runtime_error for a device that fails.
  explicit Solver(const Config& config, const std::vector<float>& samples = {});
  // Goes on from a state, as restore() does.
  explicit Solver(const StateRecord& state);
  ~Solver();
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;

  // Runs at most `steps` steps, and not past `end`: the last step is cut to land on it exactly. The
  // time, step and step count in the result are current; energy and the like are those of the last
  // inspect.
  Statistics advance(std::int32_t steps, std::optional<double> end = std::nullopt);
  Statistics inspect();
  Statistics lastStats() const;

  // Both apply from the next step on, and stay after a reset.
  void setReynolds(double reynolds);
  void setCFL(float cfl);

  // The configuration as constructed.
  const Config& config() const;

  // Back to time zero, from samples or from the seeded spectrum. The only way out of a failure.
  void reset(const std::vector<float>& samples = {});

  // The flow as it is now. From there it goes on with the same bits, in this solver or another one
  // on the same kind of device.
  StateRecord state();
  // Goes on from a state, with its Reynolds and Courant number. Ends a failure as reset() does.
  // Raises std::invalid_argument for the state of another configuration.
  void restore(const StateRecord& state);

  // A completed field, or null while all three blocks are held.
  std::shared_ptr<const Frame> snapshot(bool includeVelocity);

  // The Fourier coefficients of the vorticity, N * N of them, element j * N + i.
  std::vector<V2> spectrum() const;

  // The three planes of a frame on the host: 3 * N * N.
  std::vector<float> copyFields(const Frame& frame) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// The three planes of a frame of the device that the calling thread has selected.
std::vector<float> copyFields(const Frame& frame);

}  // namespace zeph
