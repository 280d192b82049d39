import { label } from "./language";
import { access } from "./session";

const texts = { look: "IDS_LOOK_ONLY", none: "IDS_NO_ACCESS" } as const;

/** Says that the host restricts this page, and how to get access. Empty unless `when` is the current restriction. */
export function AccessNotice({ when }: { when: keyof typeof texts }) {
  return (
    access.value === when && (
      <p class="access-notice" role="alert">
        {label(texts[when])}
      </p>
    )
  );
}
