import { defineConfig } from "@playwright/test";

export default defineConfig({
  testDir: ".",
  testMatch: "*.test.ts",
  outputDir: "test-results",
  workers: 1,
  // A test takes seconds on an idle machine; tests/run.py runs others beside it, and may have a slow one.
  timeout: 120_000,
  globalTimeout: 24 * 60_000,
  expect: { timeout: 30_000, toPass: { timeout: 60_000 } },
  reporter: "line",
  use: {
    viewport: { width: 1280, height: 800 },
    actionTimeout: 60_000,
    // Tracing makes the tests take half as long again.
    trace: process.env["DTV_TRACE"] ? "retain-on-failure" : "off",
    launchOptions: {
      executablePath: process.env["DTV_CHROMIUM"] ?? "/usr/bin/chromium",
      // The browser's own services must not use the network.
      args: [
        "--disable-gpu",
        "--disable-quic",
        "--no-first-run",
        "--disable-background-networking",
        "--disable-component-update",
        "--disable-sync",
      ],
    },
  },
});
