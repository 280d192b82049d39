import { defineConfig, type Plugin } from "vite";

// The host to which `npm run dev`, which serves the page itself, forwards the page's calls.
const host = "http://127.0.0.1:8080";

// The browser requests files in the order in which the page names them, and has one connection at first. So the short
// script that must run before the page is drawn comes behind the long files.
const theme = '<script src="/theme.js"></script>';
const themeLast: Plugin = {
  name: "theme-last",
  transformIndexHtml: {
    order: "post",
    handler: (html) => html.replace(new RegExp(`\\s*${theme}`), "").replace(/\n\s*<\/head>/, `\n    ${theme}$&`),
  },
};

export default defineConfig({
  plugins: [themeLast],
  build: {
    // The host's Content-Security-Policy is default-src 'self': no data: addresses, no inline script.
    assetsInlineLimit: 0,
    // One file of styles, in the order of their imports, although panels are loaded later: its rules depend on the order.
    cssCodeSplit: false,
    modulePreload: { polyfill: false },
    target: "es2022",
  },
  server: {
    host: "127.0.0.1",
    proxy: {
      "/jsonrpc": { target: host, ws: true, changeOrigin: true, rewriteWsOrigin: true },
      "/list.json": { target: host, changeOrigin: true },
    },
  },
});
