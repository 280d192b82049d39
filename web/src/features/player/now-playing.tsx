import { usePolling } from "../../app/commands";
import { show, view } from "../../app/navigation";
import { access } from "../../app/session";
import { ScreenIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { PhotoBar } from "./photo-bar";
import { pauseMs, photo, player, problem, readPlayer } from "./player";
import { PlayerBar } from "./player-bar";
import { label } from "./words";
import "./player.css";

/** The bars of the player and of the photo, while there is something to control. */
export function NowPlaying() {
  usePolling(readPlayer, pauseMs); // without replies there is no bar
  const played = player.value && player.value.state !== "none" ? player.value : null;
  const shown = photo.value && photo.value.state !== "none" ? photo.value : null;
  if (access.value !== "control" || (!played && !shown && !problem.value)) return null;
  return (
    <div class="now-playing">
      <Problem text={problem.value} />
      {shown && <PhotoBar photo={shown} />}
      {played && <PlayerBar player={played} />}
    </div>
  );
}

/** Leads to the set's screen, except from there. */
export const PictureButton = () =>
  view.value === "screen" ? null : (
    <button type="button" class="button small" onClick={() => show("screen")}>
      <ScreenIcon />
      <span class="player-word">{label("IDS_PICTURE")}</span>
    </button>
  );
