import { once } from "node:events";
import { connect, createServer, type AddressInfo, type Socket } from "node:net";

/** A slow line to a host: a TCP proxy with a number of bits per second in each direction, and a delay. */

export interface SlowLine {
  origin: string;
  /** Bytes that have arrived at the browser and at the host so far. */
  readonly down: number;
  readonly up: number;
  close(): void;
}

/** How often bytes are passed on. */
const tickMs = 20;

interface Piece {
  bytes: Buffer;
  to: Socket;
  dueAt: number;
}

/** One direction of the line, which all connections share in the order in which their bytes come. */
function createDirection(bitsPerSecond: number, delayMs: number) {
  const waiting: Piece[] = [];
  let budget = 0;
  let last = performance.now();
  const direction = {
    passed: 0,
    add: (to: Socket, bytes: Buffer) => void waiting.push({ bytes, to, dueAt: performance.now() + delayMs }),
    tick() {
      const now = performance.now();
      budget += ((now - last) * bitsPerSecond) / 8000;
      last = now;
      for (let piece = waiting[0]; piece && piece.dueAt <= now && budget >= 1; piece = waiting[0]) {
        const part = piece.bytes.subarray(0, Math.floor(budget));
        budget -= part.length;
        direction.passed += part.length;
        if (piece.to.writable) piece.to.write(part);
        piece.bytes = piece.bytes.subarray(part.length);
        if (piece.bytes.length > 0) break;
        waiting.shift();
      }
      // What is not used is lost.
      if (waiting.length === 0 || waiting[0]!.dueAt > now) budget = Math.min(budget, (tickMs * bitsPerSecond) / 8000);
    },
  };
  return direction;
}

/** `roundTripMs` is also the time that each new connection takes, as on a real line. */
export async function createSlowLine(host: string, bitsPerSecond: number, roundTripMs: number): Promise<SlowLine> {
  const { hostname, port } = new URL(host);
  const down = createDirection(bitsPerSecond, roundTripMs / 2);
  const up = createDirection(bitsPerSecond, roundTripMs / 2);
  const sockets = new Set<Socket>();
  // The host refuses requests to another address than its own, in Host and in Origin.
  const addressed = (bytes: Buffer) => {
    const head = bytes.toString("latin1");
    return head.includes(own) ? Buffer.from(head.replaceAll(own, new URL(host).host), "latin1") : bytes;
  };
  const server = createServer((browser) => {
    const far = connect(Number(port), hostname);
    for (const [from, to, direction] of [
      [browser, far, up],
      [far, browser, down],
    ] as const) {
      sockets.add(from);
      // A connection's beginning costs the browser a round trip before its first byte leaves.
      const opening = from === browser ? new Promise((done) => setTimeout(done, roundTripMs)) : Promise.resolve();
      from.on("data", (bytes: Buffer) => void opening.then(() => direction.add(to, from === browser ? addressed(bytes) : bytes)));
      from.on("error", () => to.destroy());
      from.on("close", () => {
        sockets.delete(from);
        setTimeout(() => to.end(), roundTripMs);
      });
    }
  });
  server.listen(0, "127.0.0.1");
  await once(server, "listening");
  const own = `127.0.0.1:${(server.address() as AddressInfo).port}`;
  const timer = setInterval(() => {
    up.tick();
    down.tick();
  }, tickMs);
  return {
    origin: `http://${own}`,
    get down() {
      return down.passed;
    },
    get up() {
      return up.passed;
    },
    close() {
      clearInterval(timer);
      for (const socket of sockets) socket.destroy();
      server.close();
    },
  };
}
