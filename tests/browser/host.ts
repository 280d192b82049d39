import { spawn, type ChildProcess } from "node:child_process";
import { once } from "node:events";
import { mkdtemp, readFile, rm } from "node:fs/promises";
import { createServer } from "node:net";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { createInterface } from "node:readline";

/** The real host with its own virtual television, and dtvctl connected to it. */

const here = import.meta.dirname;
export const bin = resolve(here, process.env["DTV_BUILD"] ?? "../../build", "bin");
export const web = resolve(here, "../../web/dist");

export const volumeUri = "/tv/cast/volume/volume";
export const muteUri = "/tv/cast/volume/mute";
export const volumeNotifyUri = "/tv/ws/notify/volume_ctrl";
export const configNotifyUri = "/tv/ws/notify/config_update";

interface Item {
  VALUE: number;
}

interface ItemResponse {
  URI: string;
  STATUS: number;
  ITEMS: Item[];
}

export interface Output {
  code: number | null;
  stdout: string;
  stderr: string;
}

/** A program that prints until it is stopped. */
export interface Printing {
  lines: string[];
  stop(): Promise<void>;
}

export interface Host {
  origin: string;
  /** A folder from which the virtual television may read files, as from a USB stick. */
  files: string;
  /** The token in the address that the host printed; undefined if it printed none. */
  readonly token: string | undefined;
  /** Ends the host as a power cut would, and starts it again at the same address. */
  kill(): Promise<void>;
  start(): Promise<void>;
  /** Stops the host's process, which then neither reads nor writes, or lets it go on. */
  pause(): void;
  resume(): void;
  /** Ends all programs and removes the state. */
  dispose(): Promise<void>;
  read(uri: string): Promise<number>;
  write(uri: string, value: number): Promise<void>;
  dtvctl(...args: string[]): Promise<Output>;
  printing(...args: string[]): Printing;
}

// A port that stays the host's own when it is started again: below those that the kernel gives to outgoing connections,
// of which the tests that run beside these have hundreds.
async function freePort(): Promise<number> {
  const lowest = 12_000;
  const range = await readFile("/proc/sys/net/ipv4/ip_local_port_range", "utf8");
  const highest = Math.max(Number(range.split(/\s+/)[0]), lowest + 1000);
  for (;;) {
    const port = lowest + Math.floor(Math.random() * (highest - lowest));
    const server = createServer().listen(port, "127.0.0.1");
    const isFree = await new Promise<boolean>((resolve) => {
      server.once("listening", () => resolve(true));
      server.once("error", () => resolve(false));
    });
    if (!isFree) continue;
    server.close();
    await once(server, "close");
    return port;
  }
}

async function end(child: ChildProcess, signal: NodeJS.Signals) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const exited = once(child, "exit");
  child.kill(signal);
  await exited;
}

export async function createHost(args: string[] = []): Promise<Host> {
  const state = await mkdtemp(join(tmpdir(), "dtv-browser-"));
  const files = await mkdtemp(join(tmpdir(), "dtv-browser-files-"));
  const address = `127.0.0.1:${await freePort()}`;
  const origin = `http://${address}`;
  const children = new Set<ChildProcess>();
  let host: ChildProcess | undefined;
  let token: string | undefined;

  function run(program: string, args: string[]): ChildProcess {
    const child = spawn(join(bin, program), args, {
      stdio: ["ignore", "pipe", "pipe"],
      env: { ...process.env, DTV_HOST: address, DTV_TOKEN: token, NO_COLOR: "1" },
    });
    children.add(child);
    child.once("exit", () => children.delete(child));
    return child;
  }

  async function start() {
    const child = run("dtv-host", ["--listen", address, "--state", state, "--stick-root", files, "--web", web, ...args]);
    host = child;
    let said = "";
    child.stdout?.on("data", (data: Buffer) => (said += data.toString()));
    child.stderr?.on("data", (data: Buffer) => (said += data.toString()));
    const deadline = Date.now() + 60_000;
    for (;;) {
      const told = /^dtv-host: (http:\/\/127\.0\.0\.1:\d+)\/(?:#token=([0-9a-f]+))?$/m.exec(said);
      const answers = await fetch(origin).then(
        (reply) => reply.ok,
        () => false,
      );
      if (answers && told?.[1] === origin) {
        token = told[2];
        return;
      }
      if (child.exitCode !== null || Date.now() > deadline) throw new Error(`dtv-host does not serve the page:\n${said}`);
      await new Promise((done) => setTimeout(done, 20));
    }
  }

  await start();

  return {
    origin,
    files,
    get token() {
      return token;
    },
    start,
    pause() {
      host?.kill("SIGSTOP");
    },
    resume() {
      host?.kill("SIGCONT");
    },
    async kill() {
      if (host) await end(host, "SIGKILL");
    },
    async dispose() {
      for (const child of children) await end(child, "SIGKILL");
      for (const folder of [state, files]) await rm(folder, { recursive: true, force: true });
    },
    async read(uri) {
      const reply = await fetch(origin + uri);
      if (!reply.ok) throw new Error(`GET ${uri}: ${reply.status}`);
      const { ITEMS } = (await reply.json()) as ItemResponse;
      return ITEMS[0]!.VALUE;
    },
    async write(uri, value) {
      const body = JSON.stringify({ REQUEST: "MODIFY", VALUE: value });
      const reply = await fetch(origin + uri, { method: "PUT", body });
      if (!reply.ok) throw new Error(`PUT ${uri}: ${reply.status}`);
    },
    async dtvctl(...args) {
      const child = run("dtvctl", args);
      const output: Output = { code: null, stdout: "", stderr: "" };
      child.stdout?.on("data", (data: Buffer) => (output.stdout += data.toString()));
      child.stderr?.on("data", (data: Buffer) => (output.stderr += data.toString()));
      await once(child, "close");
      output.code = child.exitCode;
      return output;
    },
    printing(...args) {
      const child = run("dtvctl", args);
      const lines: string[] = [];
      if (child.stdout) createInterface({ input: child.stdout }).on("line", (line) => lines.push(line));
      return { lines, stop: () => end(child, "SIGKILL") };
    },
  };
}
