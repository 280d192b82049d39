import { defineConfig } from "vite";

// The host to which `npm run dev`, which serves the page itself, forwards the page's calls.
const host = "http://127.0.0.1:8080";

export default defineConfig({
  build: {
    // The host's Content-Security-Policy is default-src 'self': no data: addresses, no inline script.
    assetsInlineLimit: 0,
    modulePreload: { polyfill: false },
    target: "es2022",
  },
  server: {
    host: "127.0.0.1",
    proxy: { "/jsonrpc": { target: host, ws: true, changeOrigin: true, rewriteWsOrigin: true } },
  },
});
