"""Machines as files: made from what people attach to reports, shown, compared and given back (tools/hwreg-board)."""
