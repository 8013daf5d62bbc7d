"""The packages in a minimal Debian root, without this project's sources: `./ccu test root`."""
