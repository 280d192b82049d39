import { signal } from "@preact/signals";
import { AccessNotice } from "../../app/access-notice";
import { controllable, usePolling } from "../../app/commands";
import { access } from "../../app/session";
import { AntennaIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { channels, useChannels } from "../channels/channels";
import {
  antenna,
  cancelScan,
  media,
  pauseMs,
  readScan,
  scan,
  scanProblem,
  startScan,
  type Antenna,
  type Medium,
  type Scan,
} from "./scan";
import { label } from "./words";
import "./scan.css";

// Kept while another view is shown.
const medium = signal<Medium>("all");
const update = signal(false);

const mediumNames: Readonly<Record<Medium, () => string>> = {
  all: () => label("IDS_ALL"),
  air: () => "Air",
  cable: () => "Cable",
  satellite: () => "Satellite",
};

export function ScanPanel() {
  useChannels();
  const readProblem = usePolling(readScan, pauseMs);
  const problem = scanProblem.value || readProblem.value;
  const state = scan.value;
  const running = state?.state === "running";
  return (
    <main class="panel sheet" aria-label={label("IDS_CHANNEL_SEARCH")}>
      <h1>{label("IDS_CHANNEL_SEARCH")}</h1>
      <AccessNotice when="look" />
      {access.value === "control" && (
        <>
          {channels.value?.length === 0 && !running && <p class="hint">No channels yet: scan</p>}
          <fieldset class="scan-form" disabled={running || !controllable.value}>
            <div class="segments small" role="group" aria-label="What to search">
              {media.map((each) => (
                <button
                  type="button"
                  key={each}
                  aria-pressed={medium.value === each}
                  onClick={() => (medium.value = each)}
                >
                  {mediumNames[each]()}
                </button>
              ))}
            </div>
            <label class="check">
              <input
                type="checkbox"
                checked={update.value}
                onChange={(event) => (update.value = event.currentTarget.checked)}
              />
              Update: keep the lists and your changes
            </label>
            <button
              type="button"
              class="button primary"
              onClick={() => void startScan(medium.peek(), update.peek())}
            >
              <AntennaIcon />
              Scan
            </button>
          </fieldset>
          <Problem text={problem} />
          {state && state.state !== "none" && <Progress scan={state} />}
          {antenna.value && <AntennaView antenna={antenna.value} />}
        </>
      )}
    </main>
  );
}

function Progress({ scan: state }: { scan: Scan }) {
  const running = state.state === "running";
  const { percent = 0, multiplex = 0, multiplexes = 0, services = 0, at, mhz, strength = 0, quality = 0 } = state;
  return (
    <section class="framed scan-progress" aria-label="Progress" data-state={state.state}>
      <div class="scan-bar">
        <progress max={100} value={percent} aria-label="Progress" />
        <span class="scan-percent">{percent} %</span>
        {running && (
          <button type="button" class="button small scan-cancel" onClick={() => void cancelScan()}>
            {label("IDS_CANCEL")}
          </button>
        )}
      </div>
      <p role="status">{outcomeOf(state)}</p>
      <dl class="scan-facts">
        <Fact name="Multiplex" value={`${multiplex} of ${multiplexes}`} />
        <Fact name="Services found" value={String(services)} />
        {running && at !== undefined && <Fact name="Frequency" value={`${at}, ${mhz} MHz`} />}
        {running && at !== undefined && (
          <Fact name="Signal" value={strength === 0 ? label("IDS_NO_SIGNAL") : `${strength} %, quality ${quality} %`} />
        )}
        <Fact name="Time" value={`${state.seconds ?? 0} s`} />
      </dl>
      {(state.messages ?? []).length > 0 && (
        <ul class="scan-messages" aria-label="Messages">
          {state.messages?.map((text, index) => <li key={index}>{text}</li>)}
        </ul>
      )}
    </section>
  );
}

const Fact = ({ name, value }: { name: string; value: string }) => (
  <div>
    <dt>{name}</dt>
    <dd>{value}</dd>
  </div>
);

function outcomeOf({ state, services, added = 0, changed = 0, removed = 0 }: Scan): string {
  switch (state) {
    case "running":
      return "The scan runs.";
    case "cancelled":
      return "The scan was cancelled; the channel lists are unchanged.";
    case "failed":
      return "The scan failed.";
    default:
      return services ? `Done: ${added} added, ${changed} changed, ${removed} removed.` : label("IDS_NOTHING_FOUND");
  }
}

function AntennaView({ antenna: { folder, reading, problem, multiplexes, refused, tuners } }: { antenna: Antenna }) {
  return (
    <section class="framed antenna" aria-label="Antenna">
      <h2>Antenna</h2>
      {folder === null ? (
        <p class="empty">
          The antenna is not connected. <code>dtvctl tv antenna FOLDER</code> connects it to a folder of transport
          streams, and so does the option <code>--antenna FOLDER</code> of dtv-host.
        </p>
      ) : (
        <p class="antenna-folder">
          <code>{folder}</code>{" "}
          {tuners.map(({ file }, index) => (
            <span key={index} class="badge">{`Tuner ${index + 1}: ${file ?? "free"}`}</span>
          ))}
        </p>
      )}
      {reading && <p role="status">{`Reads ${reading.file}, file ${reading.number} of ${reading.of}.`}</p>}
      {problem && <p class="bad">{problem}</p>}
      {folder !== null && !reading && multiplexes.length === 0 && <p class="empty">The folder has no multiplexes.</p>}
      {multiplexes.length > 0 && (
        <table aria-label="Multiplexes">
          <thead>
            <tr>
              <th scope="col">Medium</th>
              <th scope="col" class="figure">MHz</th>
              <th scope="col" class="wide">File</th>
              <th scope="col" class="figure wide">Network</th>
              <th scope="col" class="figure wide">Stream</th>
              <th scope="col" class="figure">Services</th>
              <th scope="col" class="figure">Signal</th>
              <th scope="col" class="figure">Quality</th>
            </tr>
          </thead>
          <tbody>
            {multiplexes.map((each) => (
              <tr key={each.file}>
                <td>{each.medium}</td>
                <td class="figure">{each.mhz}</td>
                <td class="wide antenna-file">{each.file}</td>
                <td class="figure wide">{each.network}</td>
                <td class="figure wide">{each.stream}</td>
                <td class="figure">{each.services}</td>
                <td class="figure">{each.strength} %</td>
                <td class="figure">{each.quality} %</td>
              </tr>
            ))}
          </tbody>
        </table>
      )}
      {refused.length > 0 && (
        <ul class="scan-messages" aria-label="Files that are no multiplex">
          {refused.map(({ file, why }) => (
            <li key={file}>
              <code>{file}</code> {why}
            </li>
          ))}
        </ul>
      )}
    </section>
  );
}
