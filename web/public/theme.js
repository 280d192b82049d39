// Sets the theme that was chosen in this browser, before the first paint. src/app/theme.ts stores it. This is a file,
// since the host's Content-Security-Policy forbids inline scripts, and no module, since modules run after the parsing.
try {
  const theme = localStorage.getItem("dtv.theme");
  if (theme === "light" || theme === "dark") document.documentElement.dataset.theme = theme;
} catch {
  // The browser refuses access to its storage, so nothing was stored either.
}
