// The last step of the build: writes FILE.gz next to each file that is large enough to gain from compression. The host
// sends it to browsers that accept gzip, and compresses no file itself.
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
