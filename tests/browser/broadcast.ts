import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdtemp, writeFile } from "node:fs/promises";
import { join } from "node:path";
import { expect } from "./fixtures";
import { bin, type Host } from "./host";

/** Channel lists and guides for the virtual television of a test. */

export interface Service {
  name: string;
  number: number;
  /** The transport stream; each has a frequency of its own. */
  stream?: number;
}

/** Times are seconds of UTC. */
export interface Programme {
  channel: string;
  title: string;
  start: number;
  stop: number;
  text?: string;
  /** The identifier that the parts of a series share. */
  series?: string;
}

/** Runs a command of the virtual television; it must succeed. Returns its reply. */
export async function tv(host: Host, ...words: string[]): Promise<Record<string, unknown>> {
  const { code, stdout, stderr } = await host.dtvctl("--json", "tv", ...words);
  expect(code, `tv ${words.join(" ")}: ${stderr}`).toBe(0);
  return JSON.parse(stdout) as Record<string, unknown>;
}

/** Adds channels to the list "air". */
export async function importChannels(host: Host, services: Service[]) {
  const text = services.map(({ name, number, stream = 1 }) =>
    [
      `[${name}]`,
      `SERVICE_ID = ${number}`,
      "NETWORK_ID = 1",
      `TRANSPORT_ID = ${1000 + stream}`,
      `VCHANNEL = ${number}`,
      `FREQUENCY = ${466_000_000 + 8_000_000 * stream}`,
      "DELIVERY_SYSTEM = DVBT",
      "VIDEO_PID = 101",
      "AUDIO_PID = 102",
    ].join("\n\t"),
  );
  const path = join(host.files, "channels.conf");
  await writeFile(path, `${text.join("\n\n")}\n`);
  expect(await tv(host, "channels", "import", path)).toMatchObject({ added: services.length });
}

const xmlTime = (seconds: number): string =>
  `${new Date(seconds * 1000).toISOString().replace(/[-:T]|\..*/g, "")} +0000`;

export async function importGuide(host: Host, programmes: Programme[]) {
  const names = [...new Set(programmes.map(({ channel }) => channel))];
  const channels = names.map((name, index) => `<channel id="c${index}"><display-name>${name}</display-name></channel>`);
  const events = programmes.map(
    ({ channel, title, start, stop, text, series }) =>
      `<programme channel="c${names.indexOf(channel)}" start="${xmlTime(start)}" stop="${xmlTime(stop)}">` +
      `<title>${title}</title>${text === undefined ? "" : `<desc>${text}</desc>`}` +
      `${series === undefined ? "" : `<episode-num system="dd_progid">${series}.${start}</episode-num>`}</programme>`,
  );
  const path = join(host.files, "guide.xml");
  await writeFile(path, `<?xml version="1.0" encoding="UTF-8"?>\n<tv>\n${[...channels, ...events].join("\n")}\n</tv>\n`);
  await tv(host, "guide", "import", path);
  await expect.poll(() => tv(host, "guide"), { timeout: 30_000 }).toMatchObject({
    events: programmes.length,
    import: { state: "done" },
  });
}

/** Connects the antenna to a folder of small multiplexes. */
export async function connectAntenna(host: Host): Promise<string> {
  const folder = await mkdtemp(join(host.files, "antenna-"));
  const child = spawn(join(bin, "dtv-multiplexes"), [folder, "--seconds", "4", "--days", "1"], { stdio: "ignore" });
  const [code] = (await once(child, "exit")) as [number | null];
  expect(code, "dtv-multiplexes").toBe(0);
  await tv(host, "antenna", folder);
  return folder;
}
