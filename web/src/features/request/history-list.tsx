import { connection } from "../../app/session";
import { IconButton } from "../../ui/icon-button";
import { SendIcon } from "../../ui/icons";
import { forgetAll, history, recall, textOf } from "./history";
import { send, strict, waiting } from "./outcomes";
import { label } from "./words";

/** The latest requests: each can be opened in the form of its URI, or sent again as it was. */
export function HistoryList() {
  const requests = history.value;
  if (requests.length === 0) return null;
  return (
    <details class="history">
      <summary>
        {label("IDS_RECENT_REQUESTS")} <span class="count">{requests.length}</span>
      </summary>
      <ol aria-label={label("IDS_RECENT_REQUESTS")}>
        {requests.map((request, index) => (
          <li key={index}>
            <button type="button" class="history-entry" onClick={() => recall(request)}>
              <b>{request.method}</b> {request.uri}
              {request.parameter && <span class="quiet"> {textOf(request)}</span>}
            </button>
            <IconButton
              label={label("IDS_SEND_AGAIN")}
              disabled={connection.value.name !== "open" || waiting.value.has(request.uri)}
              onClick={() => {
                recall(request);
                void send({ ...request, strict: strict.peek() });
              }}
            >
              <SendIcon />
            </IconButton>
          </li>
        ))}
      </ol>
      <button type="button" class="link-button" onClick={forgetAll}>
        {label("IDS_CLEAR")}
      </button>
    </details>
  );
}
