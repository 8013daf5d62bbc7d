"""The panel's page in a real browser: `./ccu test browser`, and what it measures, `./ccu bench panel`."""
