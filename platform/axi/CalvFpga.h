#pragma once

// The lowest layer of FPGA access: map the AXI user register window that the
// Xilinx XDMA driver exposes as a character device, and load/store 32-bit
// words in it. Everything above (PcieAxi) goes through these four calls.

namespace Calvento {
// Size of the XDMA user window mapped at offset 0: 32 AXI sub-systems of
// 65,536 32-bit words each.
inline constexpr unsigned long kCalvFpgaMapSize = 0x800000UL;
} // namespace Calvento

// Opens the real XDMA user device ("/dev/xdma0_user") with O_RDWR | O_SYNC and
// maps kCalvFpgaMapSize bytes of it shared, read/write. On success stores the
// mapping through base and returns the descriptor. When the device cannot be
// opened, writes "CALVLIB: Error opening device file <path>: <reason>" to
// standard error and returns open's negative result (base untouched). When
// the mapping fails, reports "CALVLIB: failed to map memory" through perror,
// stores MAP_FAILED through base, closes the descriptor and returns -1.
int calv_open_fpga(unsigned int** base);

// The same for a device node (or a file standing in for one) at devicePath.
int calv_open_fpga(unsigned int** base, char const* devicePath);

// Unmaps base (when non-null) and closes fd; does nothing when fd < 0.
void calv_close_fpga(int fd, unsigned int* base);

// Stores value at word wordIndex of the mapping. -22 (-EINVAL) when base is
// null, else 0.
int calv_write_fpga_reg(unsigned int* base, long wordIndex, unsigned int value);

// Loads word wordIndex of the mapping into *value. -22 (-EINVAL) when base or
// value is null, else 0.
int calv_read_fpga_reg(unsigned int* base, long wordIndex, unsigned int* value);
