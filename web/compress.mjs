// The build's last step: writes FILE.gz beside each file of the built page that is worth it. The host sends it to the
// browsers that take it, so that nothing is compressed while it serves.
import { readdirSync, readFileSync, writeFileSync } from "node:fs";
import { extname, join } from "node:path";
import { constants, gzipSync } from "node:zlib";

const folder = join(import.meta.dirname, "dist");
const compressible = new Set([".html", ".js", ".mjs", ".css", ".json", ".webmanifest", ".map", ".svg", ".wasm", ".txt"]);
const leastBytes = 1024;

for (const entry of readdirSync(folder, { recursive: true, withFileTypes: true })) {
  if (!entry.isFile() || !compressible.has(extname(entry.name))) continue;
  const file = join(entry.parentPath, entry.name);
  const content = readFileSync(file);
  if (content.length < leastBytes) continue;
  writeFileSync(`${file}.gz`, gzipSync(content, { level: constants.Z_BEST_COMPRESSION }));
}
