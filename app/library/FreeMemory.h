#pragma once

namespace quillet {

/// Gives the memory freed after a large passing job (reading a library, rebuilding the engine's
/// indexes) back to the system. The C library would keep it for the process otherwise, in holes
/// between what stays in use, where it counts as the process's own for as long as it runs.
/// Does nothing where the C library offers no way to do so.
void returnFreeMemory();

} // namespace quillet
